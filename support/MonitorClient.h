/**
 * A client of the monitor, the socket through which a process that uses libvorn can be looked into.
 *
 *     support::MonitorClient monitor(pid);
 *     const support::MonitorReply reply = monitor.Ask({"why", "RouteA"});
 *     if (reply.IsDone()) puts(support::Printable(support::TextOf(reply.json, "text")).c_str());
 *     else puts(reply.problem.c_str());
 *
 * The connection is made with the first request and kept. Nothing here throws, and no reply is trusted further than its
 * members have the expected types (see JsonMembers.h). Texts in `json` are as the process sent them: they are for
 * Printable() before they go to a terminal; `problem` already is.
 */
#pragma once

#include <sys/types.h>

#include <chrono>
#include <functional>
#include <string>
#include <vector>

#include "support/JsonMembers.h"

namespace support {

/** The process behind a socket, as the kernel names it; pid 0: not known. */
struct Peer {
  pid_t pid = 0;
  uid_t uid = 0;
};

/** What /proc calls the process: "player", printable; empty when it is gone. */
std::string ProcessName(pid_t pid);
/** "process 4242 (player)" */
std::string Describe(const Peer& peer);
/** "alice", or "user 1001" */
std::string UserName(uid_t uid);

/**
 * Whether to believe what a process of this user says: root's, and one's own. For root as well, since anybody can take
 * the address of a process that is gone.
 */
bool IsTrusted(uid_t uid);
/** Why not, and what to do, in one line without an end. */
std::string WhyNotTrusted(const Peer& peer);

/** The processes of this network namespace that have a monitor, by their numbers; each once, in order. */
std::vector<pid_t> FindMonitors();

/** How long to wait for an answer, and whether to go on waiting. */
struct MonitorPatience {
  std::chrono::milliseconds limit{10000};  ///< 0: for ever
  std::function<bool()> cancelled;         ///< asked some times a second; true gives up
};

enum class MonitorOutcome {
  DONE,
  FAILED,       ///< the monitor answered with an error
  NOBODY,       ///< no such process, or it has no monitor, or it hung up
  NOT_ALLOWED,  ///< it does not serve this user, or is not to be trusted
  LATE,         ///< no answer in time; the request may still be carried out
  CANCELLED,
  NONSENSE,  ///< the answer is none, or the request cannot be sent
};

struct MonitorReply {
  bool IsDone() const { return outcome == MonitorOutcome::DONE; }

  MonitorOutcome outcome = MonitorOutcome::NOBODY;
  Json json;            ///< an object when DONE or FAILED, null otherwise
  std::string problem;  ///< one line that says what went wrong, printable; empty when DONE
};

/** The words as one line of the protocol, without its end: what has blanks or quotes in it is quoted. */
std::string ToRequest(const std::vector<std::string>& words);

/** One connection. For one thread at a time. */
class MonitorClient {
 public:
  explicit MonitorClient(pid_t processId) : pid(processId) {}
  ~MonitorClient() { Close(); }
  MonitorClient(const MonitorClient&) = delete;
  MonitorClient& operator=(const MonitorClient&) = delete;

  /**
   * Sends one request and waits for the reply to it. Connects where there is no connection (any more); after LATE,
   * CANCELLED and NONSENSE it hangs up, so that a late reply is never taken for that to the next request.
   */
  MonitorReply Ask(const std::vector<std::string>& words, const MonitorPatience& patience = {});
  /** The same with a line of the protocol. */
  MonitorReply AskLine(const std::string& line, const MonitorPatience& patience = {});

  /**
   * The next line that comes by itself, after `watch` or `events`. LATE when none comes in time: the connection stays,
   * and what has come of a line is kept.
   */
  MonitorReply Next(const MonitorPatience& patience = {});

  /** Readable when there is something for Next(), unless HasLine(); negative: no connection. */
  int Descriptor() const { return fd; }
  /** A whole line has been read and not been taken yet. */
  bool HasLine() const { return received.find('\n') != received.npos; }

  void Close();

  /** The process as its address names it. */
  pid_t ProcessId() const { return pid; }
  /** Who answers, as the kernel knows it; pid 0 before the first connection. */
  const Peer& Answering() const { return peer; }

 private:
  class Deadline;

  bool Connect(const Deadline& deadline, MonitorReply& failure);
  bool Send(std::string line, const Deadline& deadline, MonitorReply& failure);
  MonitorReply Receive(const Deadline& deadline);
  bool Wait(short events, const Deadline& deadline, MonitorReply& failure) const;
  MonitorReply GaveUp(const Deadline& deadline) const;
  MonitorReply HungUp();

  const pid_t pid;
  int fd = -1;
  Peer peer;
  std::string received;
};

}  // namespace support
