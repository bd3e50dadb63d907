#include "SocketDiagnosis.h"

#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <linux/sock_diag.h>
#include <linux/unix_diag.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdint>
#include <cstring>

namespace vrdb {
namespace {

struct Request {
  nlmsghdr header;
  unix_diag_req socket;
};

Request AskForPeer(ino_t inode) {
  Request request{};
  request.header.nlmsg_len = sizeof request;
  request.header.nlmsg_type = SOCK_DIAG_BY_FAMILY;
  request.header.nlmsg_flags = NLM_F_REQUEST;
  request.socket.sdiag_family = AF_UNIX;
  request.socket.udiag_states = ~0u;
  request.socket.udiag_ino = static_cast<std::uint32_t>(inode);
  request.socket.udiag_show = UDIAG_SHOW_PEER;
  request.socket.udiag_cookie[0] = request.socket.udiag_cookie[1] = ~0u;
  return request;
}

// A connection that waits in the queue has a peer without a file, thus with inode 0, until it is accepted.
Accepted ReadPeer(nlmsghdr* reply, long bytes) {
  if (!NLMSG_OK(reply, bytes) || reply->nlmsg_type != SOCK_DIAG_BY_FAMILY) return Accepted::UNKNOWN;
  auto* message = static_cast<unix_diag_msg*>(NLMSG_DATA(reply));
  long left = static_cast<long>(reply->nlmsg_len) - static_cast<long>(NLMSG_LENGTH(sizeof *message));
  for (auto* part = reinterpret_cast<rtattr*>(message + 1); RTA_OK(part, left); part = RTA_NEXT(part, left)) {
    if (part->rta_type != UNIX_DIAG_PEER) continue;
    std::uint32_t inode = 0;
    std::memcpy(&inode, RTA_DATA(part), sizeof inode);
    return inode == 0 ? Accepted::NO : Accepted::YES;
  }
  return Accepted::UNKNOWN;
}

}  // namespace

Accepted IsAccepted(int fd) {
  struct stat status {};
  const int diagnosis = socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_SOCK_DIAG);
  if (diagnosis < 0) return Accepted::UNKNOWN;
  alignas(nlmsghdr) char reply[1024];
  long bytes = -1;
  if (fstat(fd, &status) == 0) {
    const Request request = AskForPeer(status.st_ino);
    if (send(diagnosis, &request, sizeof request, 0) > 0) bytes = recv(diagnosis, reply, sizeof reply, MSG_DONTWAIT);
  }
  close(diagnosis);
  return bytes < 0 ? Accepted::UNKNOWN : ReadPeer(reinterpret_cast<nlmsghdr*>(reply), bytes);
}

}  // namespace vrdb
