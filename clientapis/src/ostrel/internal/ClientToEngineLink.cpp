#include "ostrel/internal/ClientToEngineLink.h"

#include "ostrel/ClientMessageHandler.h"
#include "ostrel/internal/ClientGlobals.h"
#include "zel/Exception.h"
#include "zel/Logger.h"

namespace ostrel5 {

namespace {

zel::Logger &logger() {
  static zel::Logger &log = zel::LogFactory::getLogger("libOstrel.ClientLink");
  return log;
}

// How long one receive waits: the bound on how late a cancellation is seen.
unsigned int const RECEIVE_TIMEOUT_MS = 400;

} // namespace

ClientToEngineLink::ClientToEngineLink() : pullThread(&ClientToEngineLink::pullMessageRunner) {}

ClientToEngineLink::~ClientToEngineLink() = default;

// One message per pass. The link is taken from the process-wide holder on
// every pass rather than kept, as the pull thread has no pointer of its own;
// the reference is dropped before the next pass, so the thread never holds
// the last one (closeConnection joins the thread before the link goes). The
// holder is read without making a link: a pull thread must never create the
// next connection's link. (It cannot find the holder empty while it runs,
// as the link is forgotten only after its thread is joined; the empty case
// only waits for the cancellation.)
//
// A zel::Exception (an observer's, rethrown by the handler) ends the handling
// of that one message; other exceptions leave the thread.
int ClientToEngineLink::pullMessageRunner(zel::ManagedThread &thread) {
  for (;;) {
    logger().log(2, "[=== CLIENT-LINK PULSE ===]");
    try {
      if (thread.testCancel())
        return 0;
      zel::MessageHandle message;
      {
        boost::shared_ptr<ClientToEngineLink> link = internal::currentLink();
        if (link)
          message = link->receive(RECEIVE_TIMEOUT_MS);
        else
          thread.testCancel(RECEIVE_TIMEOUT_MS);
      }
      if (message.isValid())
        message->dispatchToHandler(ClientMessageHandler::instance());
      message.reset();
    } catch (zel::Exception const &e) {
      logger().log(4, "pullMessageRunner() caught: " + e.toString());
    }
  }
}

} // namespace ostrel5
