// Who is at the other end of a local socket.
#pragma once

#include <sys/socket.h>
#include <unistd.h>

namespace vorn {

/** A process does what it is told through its sockets, so it listens to its own user and to root alone. */
inline bool MayEnter(int socket, uid_t& uid) {
  ucred peer{};
  socklen_t size = sizeof peer;
  const bool known = getsockopt(socket, SOL_SOCKET, SO_PEERCRED, &peer, &size) == 0;
  uid = known ? peer.uid : static_cast<uid_t>(-1);
  return known && (uid == 0 || uid == geteuid());
}

}  // namespace vorn
