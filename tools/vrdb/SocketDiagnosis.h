#pragma once

namespace vrdb {

enum class Accepted { NO, YES, UNKNOWN };

/** Whether the other side has accepted this connection of a local socket, or lets it wait in its queue. */
Accepted IsAccepted(int fd);

}  // namespace vrdb
