#include "ostrel/ClientMessageHandler.h"

#include <exception>
#include <memory>
#include <mutex>

#include "ostrel/Alert.h"
#include "ostrel/Device.h"
#include "ostrel/DeviceObserver.h"
#include "ostrel/DeviceProperty.h"
#include "ostrel/EnumerationObserver.h"
#include "ostrel/PropertyObserver.h"
#include "ostrel/internal/ClientGlobals.h"
#include "ostrel/internal/PendingServices.h"
#include "zel/Exception.h"
#include "zel/IAlertImp.h"
#include "zel/IDeviceImp.h"
#include "zel/Logger.h"
#include "zel/Messages.h"
#include "zel/ProcessLinkConfigurator.h"
#include "zel/PropertyImp.h"
#include "zel/StateChanges.h"
#include "zel/StateManager.h"
#include "zel/TestRunImp.h"
#include "zel/TestRunManager.h"
#include "zel/TestStateImp.h"

namespace ostrel5 {

namespace {

using DevicePtr = boost::shared_ptr<zel::IDeviceImp>;
using PropertyPtr = boost::shared_ptr<zel::PropertyImp>;
using AlertPtr = boost::shared_ptr<zel::IAlertImp>;

zel::Logger &logger() {
  static zel::Logger &log = zel::LogFactory::getLogger("ClientMessageHandler");
  return log;
}

zel::Logger &stateLogger() {
  static zel::Logger &log = zel::LogFactory::getLogger("Ostrel.State");
  return log;
}

zel::String pointerText(void const *pointer) { return zel::String::fromPointer(pointer); }

// Calls one observer. An exception is logged with the operation's name and
// the observer's address, by its kind, and thrown on unchanged: the caller's
// loop ends there, its lock guard releases, and the exception travels on
// towards the pull thread.
template <class Observer, class Call>
void callObserver(char const *operation, Observer *observer, Call const &call) {
  zel::Logger &log = logger();
  ZEL_LOG(log, 1, zel::String("calling ") + operation + " observer: " + pointerText(observer));
  try {
    call(*observer);
  } catch (zel::Exception const &e) {
    log.log(4, zel::String(operation) + " observer: " + pointerText(observer) +
                   " threw zel exception: " + e.toString());
    throw;
  } catch (zel::StructuredException const &e) {
    log.log(4, zel::String(operation) + " observer: " + pointerText(observer) +
                   " threw structured exception: " + e.getText());
    throw;
  } catch (std::exception const &e) {
    log.log(4, zel::String(operation) + " observer: " + pointerText(observer) +
                   " threw std exception: " + e.what());
    throw;
  } catch (...) {
    log.log(4, zel::String(operation) + " observer: " + pointerText(observer) +
                   " threw unknown exception");
    throw;
  }
}

zel::String deviceText(Device const &device) {
  return device.isValid() ? device.guid() : zel::String("NULL");
}

zel::String propertyText(DeviceProperty const &property) {
  return property.isValid() ? property.key() : zel::String("NULL");
}

} // namespace

ClientMessageHandler &ClientMessageHandler::instance() {
  // Never deleted: the pull thread and observers may still reach it while
  // the process's static objects are destroyed.
  static ClientMessageHandler *handler = new ClientMessageHandler();
  return *handler;
}

ClientMessageHandler::ClientMessageHandler() = default;

ClientMessageHandler::~ClientMessageHandler() = default;

// ------------------------------------------------------------------ firing

template <class Call>
void ClientMessageHandler::fireEnumerationObservers(char const *operation, Call const &call) {
  zel::MutexGuard guard(m_enumerationObserversMutex);
  zel::Array<EnumerationObserver *> const observers = m_enumerationObservers;
  for (EnumerationObserver *observer : observers)
    callObserver(operation, observer, call);
}

template <class Call>
void ClientMessageHandler::fireDeviceObservers(char const *operation, zel::String const &guid,
                                               Call const &call) {
  zel::MutexGuard guard(m_deviceObserversMutex);
  for (std::size_t i = 0; i < m_deviceObservers.size(); ++i) {
    DeviceRecord const &record = m_deviceObservers[i];
    if (record.guid == guid)
      callObserver(operation, record.observer, call);
  }
}

template <class Call>
void ClientMessageHandler::firePropertyObservers(char const *operation,
                                                 DeviceCapability const &deviceType,
                                                 zel::String const &key, Call const &call) {
  zel::MutexGuard guard(m_propertyObserversMutex);
  for (std::size_t i = 0; i < m_propertyObservers.size(); ++i) {
    PropertyRecord const &record = m_propertyObservers[i];
    if (record.deviceType == deviceType && record.key == key)
      callObserver(operation, record.observer, call);
  }
}

// ------------------------------------------------------------------ flags

bool ClientMessageHandler::enumerationReceived() const noexcept {
  return m_enumerationReceived.load(std::memory_order_relaxed);
}

bool ClientMessageHandler::engineCrashed() const noexcept {
  return m_engineCrashed.load(std::memory_order_relaxed);
}

void ClientMessageHandler::setEnumerationReceived(bool value) {
  zel::MutexGuard guard(m_enumerationObserversMutex);
  bool const rising = value && !m_enumerationReceived.load(std::memory_order_relaxed);
  m_enumerationReceived.store(value, std::memory_order_relaxed);
  if (!rising)
    return;
  // The lock is recursive, so the firing below takes it again on this thread.
  fireEnumerationObservers("handleEnumerationComplete", [value](EnumerationObserver &observer) {
    observer.handleEnumerationComplete(value);
  });
}

// ------------------------------------------------------------------ registries

void ClientMessageHandler::registerEnumerationObserver(EnumerationObserver *observer) {
  if (!observer)
    return;
  zel::MutexGuard guard(m_enumerationObserversMutex);
  if (m_enumerationObservers.contains(observer))
    return;
  m_enumerationObservers.append(observer);
  logger().log(2, "EnumerationObserver " + pointerText(observer) + " registered" +
                      " total_observers: " + zel::String::fromUInt(m_enumerationObservers.size()));
}

void ClientMessageHandler::unregisterEnumerationObserver(EnumerationObserver *observer) {
  zel::MutexGuard guard(m_enumerationObserversMutex);
  m_enumerationObservers.removeValue(observer);
}

void ClientMessageHandler::registerPropertyObserver(DeviceCapability deviceType,
                                                    zel::String const &key,
                                                    PropertyObserver *observer) {
  if (!observer)
    return;
  zel::MutexGuard guard(m_propertyObserversMutex);
  for (PropertyRecord const &record : m_propertyObservers)
    if (record.observer == observer && record.deviceType == deviceType && record.key == key)
      return;
  m_propertyObservers.append(PropertyRecord{deviceType, key, observer});
}

void ClientMessageHandler::unRegisterPropertyObserver(PropertyObserver *observer) {
  zel::MutexGuard guard(m_propertyObserversMutex);
  for (std::size_t i = 0; i < m_propertyObservers.size(); ++i) {
    if (m_propertyObservers[i].observer == observer) {
      m_propertyObservers.remove(i);
      return;
    }
  }
}

void ClientMessageHandler::registerDeviceObserver(zel::String const &guid,
                                                  DeviceObserver *observer) {
  if (!observer)
    return;
  zel::MutexGuard guard(m_deviceObserversMutex);
  for (DeviceRecord const &record : m_deviceObservers)
    if (record.observer == observer && record.guid == guid)
      return;
  m_deviceObservers.append(DeviceRecord{guid, observer});
}

void ClientMessageHandler::unRegisterDeviceObserver(DeviceObserver *observer) {
  zel::MutexGuard guard(m_deviceObserversMutex);
  for (std::size_t i = 0; i < m_deviceObservers.size(); ++i) {
    if (m_deviceObservers[i].observer == observer) {
      m_deviceObservers.remove(i);
      return;
    }
  }
}

// ------------------------------------------------------------------ alerts

void ClientMessageHandler::fireAlertObservers(zel::StateManager const &) {
  zel::Array<AlertPtr> const alerts = zel::StateManager::instance().getAlerts();
  internal::diagLogHandleAlerts(alerts);
  for (AlertPtr const &imp : alerts) {
    Alert const alert(imp);
    fireEnumerationObservers(
        "handleAlert", [&alert](EnumerationObserver &observer) { observer.handleAlert(alert); });
  }
}

// ------------------------------------------------------------------ enumeration

// With the engine in this process both sides share the one mirror, which the
// engine has already filled; only a separate engine's state is copied in.
ClientMessageHandler::HandlerReturn
ClientMessageHandler::handleMessage(zel::EnumerationReturnedFromEngine const &message) {
  logger().log(2, "handle EnumerationReturnedFromEngine msg: " + zel::toString(message.getType()));
  zel::StateManager &state = zel::StateManager::instance();
  if (zel::ProcessLinkConfigurator::instance().separateProcess()) {
    state.clear();
    state.mergeWithTracking(message.getState(), nullptr);
  }
  fireAlertObservers(state);
  setEnumerationReceived(true);
  return 1;
}

// The manager's external mutex is held across setEnumerationReceived, so that
// an enumeration observer that reads the test runs sees them whole.
ClientMessageHandler::HandlerReturn
ClientMessageHandler::handleMessage(zel::TestRunsReturnedEngineToClient const &message) {
  zel::TestRunManager &manager = internal::processTestRunManager();
  zel::MutexGuard guard(manager.externalMutex());
  logger().log(2, "handle TestRunsReturnedEngineToClient msg: " + zel::toString(message.getType()));
  std::unique_ptr<zel::TestRunManager> received(message.takeTestRunManager());
  if (!received) {
    logger().log(5, "client received null state manager");
    return 0;
  }
  manager.merge(*received);
  received.reset();
  setEnumerationReceived(true);
  return 1;
}

// Observers of the run are not told here: they read the changed run on their
// own thread. An exited run is never changed again, so late reports cannot
// bring it back to life.
ClientMessageHandler::HandlerReturn
ClientMessageHandler::handleMessage(zel::TestProgressEngineToClient const &message) {
  zel::TestRunManager &manager = internal::processTestRunManager();
  zel::MutexGuard guard(manager.externalMutex());
  if (!message.hasTestRun()) {
    logger().log(4, "Unable to find ''");
    return 1;
  }
  zel::TestRunImp const &received = message.getTestRun();
  zel::String const guid = received.guid();
  boost::shared_ptr<zel::TestRunImp> local = manager.testRunByGuid(guid);
  if (!local) {
    logger().log(4, "Unable to find '" + guid + "'");
    return 1;
  }
  ZEL_LOG(logger(), 1,
          "handleMessage(TestProgressEngineToClient): TR guid: " + guid + "\n  state: " +
              received.state().toString() + " result: " + received.result().toString());
  if (local->state() != zel::TestStateImp(zel::TestStateImp::EXITED))
    local->update(received);
  return 1;
}

ClientMessageHandler::HandlerReturn
ClientMessageHandler::handleMessage(zel::DeviceEnumerationCompleted const &message) {
  fireEnumerationObservers("handleDeviceEnumerationCompleted",
                           [&message](EnumerationObserver &observer) {
                             observer.handleDeviceEnumerationCompleted(
                                 message.sourceName(), message.count(), message.elapsed());
                           });
  internal::diagLogHandleDeviceEnumerationCompleted(message.sourceName(), message.count(),
                                                    message.elapsed());
  return 1;
}

ClientMessageHandler::HandlerReturn
ClientMessageHandler::handleMessage(zel::DeviceEnumerationFailed const &message) {
  fireEnumerationObservers("handleDeviceEnumerationFailed",
                           [&message](EnumerationObserver &observer) {
                             observer.handleDeviceEnumerationFailed(
                                 message.sourceName(), message.reason(), message.elapsed());
                           });
  internal::diagLogHandleDeviceEnumerationFailed(message.sourceName(), message.reason(),
                                                 message.elapsed());
  return 1;
}

ClientMessageHandler::HandlerReturn
ClientMessageHandler::handleMessage(zel::TestEnumerationCompleted const &message) {
  fireEnumerationObservers("handleTestEnumerationCompleted",
                           [&message](EnumerationObserver &observer) {
                             observer.handleTestEnumerationCompleted(
                                 message.sourceName(), message.count(), message.elapsed());
                           });
  internal::diagLogHandleTestEnumerationCompleted(message.sourceName(), message.count(),
                                                  message.elapsed());
  return 1;
}

ClientMessageHandler::HandlerReturn
ClientMessageHandler::handleMessage(zel::TestEnumerationFailed const &message) {
  fireEnumerationObservers("handleTestEnumerationFailed", [&message](
                                                              EnumerationObserver &observer) {
    observer.handleTestEnumerationFailed(message.sourceName(), message.reason(), message.elapsed());
  });
  internal::diagLogHandleTestEnumerationFailed(message.sourceName(), message.reason(),
                                               message.elapsed());
  return 1;
}

ClientMessageHandler::HandlerReturn
ClientMessageHandler::handleMessage(zel::EnumerationInProgressEngineToClient const &) {
  return 1;
}

ClientMessageHandler::HandlerReturn
ClientMessageHandler::handleMessage(zel::StopTestEngineToProvider const &) {
  return 1;
}

// Nothing but the flag: runs in progress notice the loss through the link.
ClientMessageHandler::HandlerReturn
ClientMessageHandler::handleMessage(zel::ClientCrashed const &) {
  m_engineCrashed.store(true, std::memory_order_relaxed);
  return 1;
}

// ------------------------------------------------------------------ message boxes

ClientMessageHandler::HandlerReturn
ClientMessageHandler::handleMessage(zel::MessageBox2RequestMessage const &message) {
  if (internal::relayMessageBoxRequest(message))
    return 1;
  logger().log(2, "The current UI does not support the requested message box");
  internal::sendMessage(new zel::MessageBox2AckMessage(message, false));
  return 1;
}

ClientMessageHandler::HandlerReturn
ClientMessageHandler::handleMessage(zel::MessageBox2CancelMessage const &message) {
  internal::relayMessageBoxCancel(message);
  return 1;
}

// ------------------------------------------------------------------ live updates

// Property records first, then device records, then enumeration observers:
// `before` gives the about-to-change notice (the mirror still has the old
// value), otherwise the changed notice (it has the new one).
void ClientMessageHandler::firePropertyChange(Device const &device,
                                              DeviceProperty const &oldProperty,
                                              DeviceProperty const &newProperty, bool before) {
  ZEL_LOG(logger(), 1,
          "UpdatesProviderToEngineToUI -- property change: " + propertyText(oldProperty) +
              " on device: " + deviceText(device) + (before ? " (before)" : " (after)"));
  if (before) {
    firePropertyObservers("handlePropertyAboutToBeChanged", device.deviceType(), oldProperty.key(),
                          [&](PropertyObserver &observer) {
                            observer.handlePropertyAboutToBeChanged(device, oldProperty,
                                                                    newProperty);
                          });
    fireDeviceObservers("handlePropertyAboutToBeChanged", device.guid(),
                        [&](DeviceObserver &observer) {
                          observer.handlePropertyAboutToBeChanged(device, oldProperty, newProperty);
                        });
    fireEnumerationObservers("handlePropertyAboutToBeChanged", [&](EnumerationObserver &observer) {
      observer.handlePropertyAboutToBeChanged(device, oldProperty, newProperty);
    });
  } else {
    firePropertyObservers(
        "handlePropertyChanged", device.deviceType(), oldProperty.key(),
        [&](PropertyObserver &observer) { observer.handlePropertyChanged(device, newProperty); });
    fireDeviceObservers("handlePropertyChanged", device.guid(), [&](DeviceObserver &observer) {
      observer.handlePropertyChanged(device, newProperty);
    });
    fireEnumerationObservers("handlePropertyChanged", [&](EnumerationObserver &observer) {
      observer.handlePropertyChanged(device, newProperty);
    });
  }
}

// A property's removal is told only beforehand; there is no removed notice.
void ClientMessageHandler::firePropertyRemoval(Device const &device,
                                               DeviceProperty const &property) {
  if (!device.isValid() || !property.isValid())
    return;
  auto call = [&](auto &observer) { observer.handlePropertyAboutToBeRemoved(device, property); };
  firePropertyObservers("handlePropertyAboutToBeRemoved", device.deviceType(), property.key(),
                        call);
  fireDeviceObservers("handlePropertyAboutToBeRemoved", device.guid(), call);
  fireEnumerationObservers("handlePropertyAboutToBeRemoved", call);
  DevicePtr const stored = zel::StateManager::instance().deviceByGuid(device.guid());
  if (stored)
    stored->removeProperty(property.key());
}

ClientMessageHandler::HandlerReturn
ClientMessageHandler::handleMessage(zel::UpdatesProviderToEngineToUI const &message) {
  zel::Logger &log = logger();
  zel::StateManager &state = zel::StateManager::instance();
  log.log(2, "handle UpdatesProviderToEngineToUI");

  // Before any change: the mirror still holds the old values.
  zel::StateChanges::PreviewChanges preview;
  state.previewMergeWithTracking(message.state(), preview);
  {
    zel::Array<zel::StateChanges::ChangedProperty> const changes = preview.changes();
    for (zel::StateChanges::ChangedProperty const &change : changes)
      firePropertyChange(Device(change.device()), DeviceProperty(change.oldProperty()),
                         DeviceProperty(change.newProperty()), true);
  }

  zel::StateChanges::MergeChanges merged;
  state.mergeWithTracking(message.state(), &merged);

  // Only enumeration observers hear of a new device.
  for (DevicePtr device : merged.newDevices) {
    ZEL_LOG(log, 1, "UpdatesProviderToEngineToUI -- new device: " + device->guid());
    state.addDeviceToTree(device);
    Device const handle(device);
    fireEnumerationObservers("handleNewDevice", [&handle](EnumerationObserver &observer) {
      observer.handleNewDevice(handle);
    });
  }

  for (zel::StateChanges::NewProperty const &entry : merged.newProperties) {
    Device const device(entry.first);
    DeviceProperty const property(entry.second);
    ZEL_LOG(log, 2,
            "UpdatesProviderToEngineToUI -- new property: " + property.key() +
                " on device: " + device.guid() + " type: " + device.deviceType().toString());
    auto call = [&](auto &observer) { observer.handleNewProperty(device, property); };
    firePropertyObservers("handleNewProperty", device.deviceType(), property.key(), call);
    fireDeviceObservers("handleNewProperty", device.guid(), call);
    fireEnumerationObservers("handleNewProperty", call);
  }

  for (AlertPtr const &imp : merged.newAlerts) {
    internal::diagLogHandleAlert(imp);
    Alert const alert(imp);
    fireEnumerationObservers(
        "handleAlert", [&alert](EnumerationObserver &observer) { observer.handleAlert(alert); });
  }

  // After the change: the mirror holds the new values.
  {
    zel::Array<zel::StateChanges::ChangedProperty> const changes = preview.changes();
    for (zel::StateChanges::ChangedProperty const &change : changes)
      firePropertyChange(Device(change.device()), DeviceProperty(change.oldProperty()),
                         DeviceProperty(change.newProperty()), false);
  }

  for (zel::String const &guid : message.deviceGuidsToRemove()) {
    DevicePtr const imp = state.deviceByGuid(guid);
    if (!imp) {
      log.log(3, "UpdatesProviderToEngineToUI - trying to remove device: " + guid +
                     " but it does not exist in state");
      continue;
    }
    ZEL_LOG(log, 1, "UpdatesProviderToEngineToUI -- removing device: " + guid);
    // The handle keeps its own reference, so it stays usable after removal.
    Device const device(imp);
    zel::String const deviceGuid = device.guid();
    auto aboutToBeRemoved = [&](auto &observer) { observer.handleDeviceAboutToBeRemoved(device); };
    fireDeviceObservers("handleDeviceAboutToBeRemoved", deviceGuid, aboutToBeRemoved);
    fireEnumerationObservers("handleDeviceAboutToBeRemoved", aboutToBeRemoved);
    if (!state.removeDevice(guid, nullptr, true)) {
      log.log(3, "UpdatesProviderToEngineToUI - trying to remove device: " + guid +
                     " state.removeDevice() returned false");
      continue;
    }
    auto removed = [&](auto &observer) { observer.handleDeviceRemoved(device); };
    fireDeviceObservers("handleDeviceRemoved", deviceGuid, removed);
    fireEnumerationObservers("handleDeviceRemoved", removed);
  }

  // The two arrays run in parallel; the keys' array rules the length.
  zel::Array<zel::String> const &deviceGuids = message.deviceGuidsForPropertiesToRemove();
  zel::Array<zel::String> const &keys = message.propertyGuidsToRemove();
  for (std::size_t i = 0; i < keys.size(); ++i) {
    zel::String const guid = i < deviceGuids.size() ? deviceGuids[i] : zel::String();
    zel::String const &key = keys[i];
    ZEL_LOG(log, 1,
            "UpdatesProviderToEngineToUI -- removing property: " + key + " on device: " + guid);
    DevicePtr const imp = state.deviceByGuid(guid);
    if (!imp) {
      log.log(3, "UpdatesProviderToEngineToUI - trying to remove property on device: " + guid +
                     " but it does not exist in state");
      continue;
    }
    PropertyPtr const property = imp->property(key);
    if (!property) {
      log.log(3, "UpdatesProviderToEngineToUI - trying to remove property: " + key +
                     " on device: " + guid + " but property does not exist on this device");
      continue;
    }
    ZEL_LOG(stateLogger(), 1,
            "UpdatesProviderToEngineToUI - removing property: " + key + " on device: " + guid);
    firePropertyRemoval(Device(imp), DeviceProperty(property));
  }

  for (zel::String const &guid : message.alertGuidsToRemove()) {
    AlertPtr const imp = state.alertByGuid(guid);
    if (!imp) {
      log.log(3, "UpdatesProviderToEngineToUI - trying to remove alert: " + guid +
                     " but it does not exist in state");
      continue;
    }
    Alert const alert(imp);
    fireEnumerationObservers(
        "handleAlertAboutToBeRemoved",
        [&alert](EnumerationObserver &observer) { observer.handleAlertAboutToBeRemoved(alert); });
    if (!state.removeAlert(guid)) {
      log.log(3, "UpdatesProviderToEngineToUI - trying to remove alert: " + guid +
                     " state.removeAlert() returned false");
      continue;
    }
    fireEnumerationObservers("handleAlertRemoved", [&alert](EnumerationObserver &observer) {
      observer.handleAlertRemoved(alert);
    });
  }
  return 1;
}

} // namespace ostrel5
