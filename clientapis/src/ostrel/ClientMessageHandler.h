#pragma once
// ostrel5::ClientMessageHandler: the client's end of the engine's message
// stream, and the registries of the observers that hear about it.
//
// One process-wide object, made on first use by instance() and never
// deleted. Every message that the link's pull thread receives is dispatched
// here (Message::dispatchToHandler): the handler brings the process-wide
// mirror (zel::StateManager) and the process-wide zel::TestRunManager up to
// date and tells the observers.
//
// Flags. enumerationReceived() turns true when the answer to the last
// enumeration request (devices, tests or test runs) has come, or when a
// cache was loaded; it is reset by each new request and by closeConnection.
// engineCrashed() turns true when a ClientCrashed message arrives and stays
// true for the rest of the process. Both are read without a lock, for
// threads that poll them.
//
// Observers. Three registries of raw pointers, kept without duplicates and
// in order of registration: enumeration observers (told everything),
// device observers (one device GUID each) and property observers (one
// property key on one device type each, on every device of that type). The
// handler never owns or deletes an observer: unregister it before
// destroying it. Null pointers are ignored. The registries survive
// closeConnection, so observers stay registered across reconnection.
//
// Firing. Enumeration observers are called on a copy of their array, under
// the enumeration lock, which is held until the last one returns; device and
// property records are walked in place under their own lock. An observer
// must not register or unregister observers of the kind being fired from
// inside a notice. Only one of the three locks is held at a time.
//
// Exceptions from observers. The exception is logged on the category
// "ClientMessageHandler" at priority 4 with the operation's name and the
// observer's address, and thrown on unchanged: the remaining observers of
// that notice are not called, and the handling of the message ends there.
// The pull thread logs a zel::Exception and goes on with the next message.
//
// Threads. The handleMessage overloads run on the pull thread.
// fireAlertObservers and setEnumerationReceived may also run on a caller's
// thread; registering and unregistering may happen on any thread.

#include "ostrel/DeviceCapability.h"
#include "zel/Array.h"
#include "zel/MessageHandler.h"
#include "zel/Mutex.h"
#include "zel/String.h"

#include <atomic>

namespace zel {
class StateManager;
}

namespace ostrel5 {

class Device;
class DeviceObserver;
class DeviceProperty;
class EnumerationObserver;
class PropertyObserver;

class ClientMessageHandler : public zel::MessageHandler {
public:
  using zel::MessageHandler::handleMessage;

  /// The process-wide handler, made on first use.
  static ClientMessageHandler &instance();

  ~ClientMessageHandler() override;

  ClientMessageHandler(ClientMessageHandler const &) = delete;
  ClientMessageHandler &operator=(ClientMessageHandler const &) = delete;

  // Message handlers. Those not listed keep the framework's default, which
  // does nothing. Each returns 1 (handled) unless said otherwise.

  /// Passes the request to the message box relay; when nobody shows it,
  /// answers the engine with a refusing MessageBox2AckMessage.
  HandlerReturn handleMessage(zel::MessageBox2RequestMessage const &message) override;
  /// Passes the cancellation to the message box relay.
  HandlerReturn handleMessage(zel::MessageBox2CancelMessage const &message) override;
  /// A live change of the machine: mirror updated, all three kinds of
  /// observer told, with a before and an after for every changed property.
  HandlerReturn handleMessage(zel::UpdatesProviderToEngineToUI const &message) override;
  /// Ignored.
  HandlerReturn handleMessage(zel::StopTestEngineToProvider const &message) override;
  HandlerReturn handleMessage(zel::TestEnumerationFailed const &message) override;
  HandlerReturn handleMessage(zel::TestEnumerationCompleted const &message) override;
  HandlerReturn handleMessage(zel::DeviceEnumerationFailed const &message) override;
  HandlerReturn handleMessage(zel::DeviceEnumerationCompleted const &message) override;
  /// Ignored.
  HandlerReturn handleMessage(zel::EnumerationInProgressEngineToClient const &message) override;
  /// Tells alert observers, then marks the enumeration as received.
  HandlerReturn handleMessage(zel::EnumerationReturnedFromEngine const &message) override;
  /// Merges the engine's runs into the process-wide manager; 0 when the
  /// message carries no manager.
  HandlerReturn handleMessage(zel::TestRunsReturnedEngineToClient const &message) override;
  /// Updates the local run of that GUID unless it has exited.
  HandlerReturn handleMessage(zel::TestProgressEngineToClient const &message) override;
  /// Notes that the engine crashed; nothing else.
  HandlerReturn handleMessage(zel::ClientCrashed const &message) override;

  // Flags.
  bool enumerationReceived() const noexcept;
  /// Stores the flag under the enumeration lock; only a change from false
  /// to true tells the enumeration observers (handleEnumerationComplete).
  void setEnumerationReceived(bool value);
  bool engineCrashed() const noexcept;

  // Registries.
  /// Adds the observer at the end unless it is already registered.
  void registerEnumerationObserver(EnumerationObserver *observer);
  /// Removes it if present; the others keep their order.
  void unregisterEnumerationObserver(EnumerationObserver *observer);
  /// Adds a record unless one with the same pointer, type and key exists.
  void registerPropertyObserver(DeviceCapability deviceType, zel::String const &key,
                                PropertyObserver *observer);
  /// Removes the first record with that pointer, and only that one.
  void unRegisterPropertyObserver(PropertyObserver *observer);
  /// Adds a record unless one with the same pointer and GUID exists.
  void registerDeviceObserver(zel::String const &guid, DeviceObserver *observer);
  /// Removes the first record with that pointer, and only that one.
  void unRegisterDeviceObserver(DeviceObserver *observer);

  /// Tells every enumeration observer of every alert of the process-wide
  /// mirror, old ones included. `state` is not consulted.
  void fireAlertObservers(zel::StateManager const &state);

protected:
  ClientMessageHandler();

private:
  struct PropertyRecord {
    DeviceCapability deviceType;
    zel::String key;
    PropertyObserver *observer;
  };
  struct DeviceRecord {
    zel::String guid;
    DeviceObserver *observer;
  };

  template <class Call> void fireEnumerationObservers(char const *operation, Call const &call);
  template <class Call>
  void fireDeviceObservers(char const *operation, zel::String const &guid, Call const &call);
  template <class Call>
  void firePropertyObservers(char const *operation, DeviceCapability const &deviceType,
                             zel::String const &key, Call const &call);

  void firePropertyChange(Device const &device, DeviceProperty const &oldProperty,
                          DeviceProperty const &newProperty, bool before);
  void firePropertyRemoval(Device const &device, DeviceProperty const &property);

  std::atomic<bool> m_enumerationReceived{false};
  std::atomic<bool> m_engineCrashed{false};
  zel::Array<EnumerationObserver *> m_enumerationObservers;
  zel::Array<PropertyRecord> m_propertyObservers;
  zel::Array<DeviceRecord> m_deviceObservers;
  zel::mutex m_deviceObserversMutex;
  zel::mutex m_propertyObserversMutex;
  // Guards m_enumerationObservers and the change of m_enumerationReceived.
  zel::mutex m_enumerationObserversMutex;
};

} // namespace ostrel5
