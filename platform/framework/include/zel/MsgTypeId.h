#pragma once
// zel::MsgTypeId: the type number of every message class.
//
// Numbering rule: a class's number is the position of its handleMessage
// overload in zel::MessageHandler (the destructor holds position 1), so
// SetInternetAccessAllowed is 2 and Message, the last overload, is 46. The
// list below is therefore in handler order, and MessageHandler declares its
// overloads from this same list, so the two cannot drift apart. Numbers never
// change: they are written into encoded messages and the cache file. A new
// message class takes the next free number (47 and up) and its overload goes
// after the existing ones. 0 is no type.
//
// Classes that have no overload of their own (the abstract bases
// EnumerationReturned, LocalizationMessage, MessageBox2GenericMessage) have no
// number: only their subclasses are ever made.

#include <cstdint>
#include <iosfwd>

#include "zel/String.h"

/// X(Class, number) for every message class, in handler order.
#define ZEL_MESSAGE_TYPES(X)                                                                       \
  X(SetInternetAccessAllowed, 2)                                                                   \
  X(MessageBox2CancelMessage, 3)                                                                   \
  X(MessageBox2RequestMessage, 4)                                                                  \
  X(MessageBox2ResultMessage, 5)                                                                   \
  X(MessageBox2AckMessage, 6)                                                                      \
  X(HttpGetRequestProviderToEngine, 7)                                                             \
  X(SetUpdateIntervalIndicatorClientToEngine, 8)                                                   \
  X(ForceUpdateIndicatorClientToEngine, 9)                                                         \
  X(StopIndicatorClientToEngine, 10)                                                               \
  X(RequestUpdateClientToEngineToIndicator, 11)                                                    \
  X(UpdatesProviderToEngineToUI, 12)                                                               \
  X(DeviceUpdateEngineToClient, 13)                                                                \
  X(ResumeIndicatorClientToEngineToProvider, 14)                                                   \
  X(PauseIndicatorClientToEngineToProvider, 15)                                                    \
  X(RunIndicatorClientToEngine, 16)                                                                \
  X(IndicatorMessage, 17)                                                                          \
  X(SetLocaleMessage, 18)                                                                          \
  X(SysInfoRequestToEngine, 19)                                                                    \
  X(StopTestEngineToProvider, 20)                                                                  \
  X(StopTestsClientToEngine, 21)                                                                   \
  X(TestEnumerationFailed, 22)                                                                     \
  X(TestEnumerationCompleted, 23)                                                                  \
  X(DeviceEnumerationFailed, 24)                                                                   \
  X(DeviceEnumerationCompleted, 25)                                                                \
  X(EnumerationProgressMessage, 26)                                                                \
  X(EnumerationInProgressEngineToClient, 27)                                                       \
  X(EnumerationReturnedProviderToEngine, 28)                                                       \
  X(EnumerationReturnedFromEngine, 29)                                                             \
  X(TestRunsReturnedEngineToClient, 30)                                                            \
  X(EnumerateTestRunsClientToEngine, 31)                                                           \
  X(EnumerateDevicesClientToEngine, 32)                                                            \
  X(EnumerateTestsClientToEngine, 33)                                                              \
  X(EnumerationMessage, 34)                                                                        \
  X(TestProgressEngineToClient, 35)                                                                \
  X(TestProgressProviderToEngine, 36)                                                              \
  X(RunTestClientToEngine, 37)                                                                     \
  X(DiagnosticMessage, 38)                                                                         \
  X(IPCMessage, 39)                                                                                \
  X(ModuleStarted, 40)                                                                             \
  X(ShutdownClientToEngine, 41)                                                                    \
  X(ControlMessage, 42)                                                                            \
  X(ClientCrashed, 43)                                                                             \
  X(ClientLoggedOut, 44)                                                                           \
  X(UnknownMessage, 45)                                                                            \
  X(Message, 46)

namespace zel {

enum class MsgTypeId : std::uint16_t {
  None = 0,
#define ZEL_MSG_TYPE_ENUMERATOR(name, number) name = number,
  ZEL_MESSAGE_TYPES(ZEL_MSG_TYPE_ENUMERATOR)
#undef ZEL_MSG_TYPE_ENUMERATOR
};

/// Number of message classes (45).
constexpr unsigned MSG_TYPE_COUNT = 0
#define ZEL_MSG_TYPE_COUNT(name, number) +1
    ZEL_MESSAGE_TYPES(ZEL_MSG_TYPE_COUNT)
#undef ZEL_MSG_TYPE_COUNT
    ;
/// One past the greatest number in use.
constexpr unsigned MSG_TYPE_LIMIT = 47;

/// The class name of a type ("EnumerationReturnedFromEngine"); "" for a
/// number that names no class.
char const *msgTypeName(MsgTypeId type) noexcept;
/// The class name, or "MsgTypeId(<n>)" for a number that names no class.
String toString(MsgTypeId type);
/// Writes toString(type): what log lines such as
/// "handle EnumerationReturnedFromEngine msg: " are made of.
std::ostream &operator<<(std::ostream &out, MsgTypeId type);
/// Whether `number` names a message class.
bool isKnownMsgType(unsigned number) noexcept;

} // namespace zel
