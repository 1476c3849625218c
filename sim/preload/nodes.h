// What the board's device nodes do with each private request.
#pragma once
#include <string>

namespace bsim {

// Serves request req on the node at path (journaled, fault-injectable).
// Returns the ioctl result; err is the errno to leave on failure.
long node_ioctl(const char *path, unsigned long req, void *arg, int &err);

// /proc/watchdog_status as the watchdog driver shows it: lines of
// "%-12s: %-12s\n", so the value of the third line ("timeleft") starts at
// byte 68, where the tool reads it.
std::string watchdog_status_text(unsigned mode, unsigned timeleft, unsigned timeout);

}  // namespace bsim
