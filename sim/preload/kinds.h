// The kinds of board path, one source file each with its table:
//   request nodes (request_nodes.cpp): /dev/<name>, a memory file as the
//     descriptor and a table of requests, each with its record layout;
//   plain files (plain_files.cpp): /proc and /sys files kept in the state;
//   serial lines (serial_lines.cpp): /dev/ttyS<n>, pseudo-terminals the box
//     links in, watched only (state file serial/ttyS<n>);
//   MII registers (mii.cpp): SIOCGMIIREG/SIOCSMIIREG on a socket, for the
//     interfaces of the state's mdio/.
//   Ethernet ports (net_ports.cpp): the driver's private socket requests on
//     eth<n> (state file eth/eth<n>); everything else reaches the box's veth.
//   block images (block_images.cpp): /dev/<name>, the disks' and sticks'
//     image files block/<name>, kept at their size as a block device is.
// A path is the board's when its kind knows it and the state has its file.
#pragma once
#include "../common/records.h"

#include <cstdio>
#include <sys/types.h>

namespace bsim {

struct NodeTable {
    const char *path;  // "/dev/hal_gpio"; its state file is "dev/hal_gpio"
    const Request *reqs;
    size_t count;
};

// The request node at this path, or null.
const NodeTable *request_node(const char *path);
int request_node_open(const NodeTable &node, int flags);
// Serves a request (journaled, fault-injectable); err is the errno to leave.
long request_node_ioctl(const NodeTable &node, unsigned long req, void *arg, int &err);

// True for a /proc or /sys path whose file the state has.
bool plain_file(const char *path);
int plain_file_open(const char *path, int flags, mode_t mode);
FILE *plain_file_fopen(const char *path, const char *mode);
int plain_file_access(const char *path, int how);

// True for /dev/ttyS<n> when the state has serial/ttyS<n>.
bool serial_line(const char *path);
// A terminal request on a serial line (TCGETS, TCSETS*, TCFLSH, or any other
// ioctl): journaled and fault-injectable ("ioctl./dev/ttyS0.0x5402"); call
// makes the real request. errno as the kernel would leave it.
using LineCall = int (*)(int fd, unsigned long req, const void *arg);
int serial_line_request(const char *path, int fd, unsigned long req, const void *arg,
                        LineCall call);
// A read or write on a serial line, journaled with the time it began;
// errno as the kernel left it.
ssize_t serial_line_read(const char *path, int fd, void *buf, size_t len);
ssize_t serial_line_write(const char *path, int fd, const void *buf, size_t len);

// True for an MII register request on a socket while the box has a state.
bool mii_request(int fd, unsigned long req);
// Serves it from the state, journaled and fault-injectable ("ioctl.eth1.0x8948");
// errno as a driver would leave it.
int mii_ioctl(unsigned long req, void *rec);
// True for a socket request that the board's Ethernet driver answers.
bool net_request(unsigned long req);
// Serves it for the interface named in the ifreq at arg (journaled,
// fault-injectable as "ioctl.eth0.0x89f0"); err is the errno to leave.
long net_request_ioctl(unsigned long req, void *arg, int &err);
// True for /dev/<name> when the state has the image block/<name>.
bool block_image(const char *path);
int block_image_open(const char *path, int flags, mode_t mode);
// lseek and write on an image's descriptor, bounded by the image's size.
off_t block_image_seek(int fd, off_t off, int whence);
ssize_t block_image_write(int fd, const void *buf, size_t len);
// True (journaled, errno EIO) when a read of len bytes from the current
// position would touch a sector the state's badsectors/<name> lists.
bool block_image_unreadable(int fd, const char *path, size_t len);
// A read or write in an image's quick prefix, served from memory (rc, true);
// false when fd is not positioned in one.
bool block_quick_transfer(int fd, void *buf, size_t len, bool writing, ssize_t &rc);
// fd no longer names the image it did (closed, or another file behind it).
void block_image_forget(int fd);

}  // namespace bsim
