// The one place that decides what belongs to the board, and what every kind
// shares: the descriptor table and the journal lines of opens and closes.
#pragma once
#include "kinds.h"

#include <cstdio>
#include <sys/types.h>

namespace bsim {

enum class Backing { None, Node, File, Line, Block };

struct Claim {
    Backing kind = Backing::None;
    const char *path = nullptr;  // stable for the life of the process
    const NodeTable *node = nullptr;
};

// Absolute paths only; nothing is the board's without a state directory.
// errno is left as it was.
Claim claim_path(const char *path);

int board_open(const Claim &c, int flags, mode_t mode);
FILE *board_fopen(const Claim &c, const char *mode);
int board_access(const Claim &c, int how);

// Forgets fd before it is closed; returns its board path, or null.
const char *board_forget(int fd);
// Journals the close of a board descriptor; errno is left as it was.
void board_closed(const char *path, int fd, int rc);

// The request node behind fd, or null if fd is not one (any more).
const NodeTable *board_node(int fd);
// The serial line's path behind fd, or null if fd is not one (any more).
const char *board_line(int fd);
// The block image's path behind fd, or null if fd is not one (any more).
const char *board_block(int fd);
// Serves a request on a board node's descriptor, setting errno as a driver.
int board_ioctl(const NodeTable &node, int fd, unsigned long req, void *arg);

// A socket request the board's Ethernet driver answers, whatever the
// descriptor (requests of the box's interfaces never reach a host's).
bool board_net_request(unsigned long req);
int board_net_ioctl(int fd, unsigned long req, void *arg);
// True when socket(domain, ...) is to fail (fail/socket.<domain>); err is
// the errno to leave. The failure is journaled.
bool board_socket_fails(int domain, int type, int &err);

// True when a read or write ("read", "write") on a disk image or serial line
// is to fail (fail/<op>.<path>): journaled, errno set, ret the result to give.
bool board_transfer_fails(const char *op, const char *path, size_t len, ssize_t &ret);

// With BOARDSIM_DEBUG=1, device and proc paths left to the system are
// logged: that is where a node the simulator lacks shows up.
void board_passed(const char *what, const char *path);

}  // namespace bsim
