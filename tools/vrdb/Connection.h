/**
 * One command, one connection.
 *
 * The console serves one client at a time and lets the others wait in its queue, so vrdb keeps it for the time of one
 * command only: a session, a live view and scripts work side by side. A late reply dies with its connection and can
 * never be taken for the reply to the next command.
 */
#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <string>

#include "support/MonitorClient.h"

namespace vrdb {

/** The longest command that the console takes in one read. */
constexpr std::size_t MAX_COMMAND_BYTES = 1023;

using support::Peer;

enum class Outcome {
  ANSWERED,
  NO_CONSOLE,  ///< nobody there, not allowed, or gone before the reply was whole
  BUSY,        ///< with another client, all the time; nothing was sent
  TIMED_OUT,   ///< the command was taken, but not answered in time
  CANCELLED,
};

struct Answer {
  Outcome outcome = Outcome::NO_CONSOLE;
  std::string
      text;  ///< the reply, printable; for other outcomes one line, without its end, that says why there is none
  Peer peer;
};

/** How long to wait for an answer, and what to do meanwhile. */
struct Patience {
  std::chrono::milliseconds limit{10000};        ///< 0: for ever
  std::function<bool()> cancelled;               ///< asked some times a second; true gives up
  std::function<void(const std::string&)> busy;  ///< told once when the console has served others for a second
  std::chrono::milliseconds turn{0};             ///< the longest wait for one's turn, where that is not the limit
};

/**
 * Sends one command and waits for its reply, up to the NUL that ends it; what stands behind the NUL is dropped.
 *
 * The command is sent once the console has turned to this connection. One that is given up on before is therefore never
 * carried out later. (A kernel without socket diagnosis cannot tell; the command is then sent at once.)
 */
Answer Ask(const std::string& command, const Patience& patience);

/** As Ask, but hangs up instead of sending anything: ANSWERED, with no text, says that somebody is there. */
Answer Knock(const Patience& patience);

}  // namespace vrdb
