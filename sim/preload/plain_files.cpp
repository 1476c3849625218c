// Plain files: the board's /proc and /sys files live in the state directory
// under the same path (proc/disk/global, sys/bus/pci/...). Opening one opens
// the state's copy, so even a shell's "echo 0 > /proc/sys/kernel/printk"
// writes the board's file and not the host's.
#include "../common/state.h"
#include "kinds.h"
#include "real.h"

#include <string_view>

namespace bsim {

bool plain_file(const char *path)
{
    std::string_view p(path);
    return (p.starts_with("/proc/") || p.starts_with("/sys/")) && state_has_file(path + 1);
}

int plain_file_open(const char *path, int flags, mode_t mode)
{
    return real().open(state_materialize(path + 1).c_str(), flags, mode);
}

FILE *plain_file_fopen(const char *path, const char *mode)
{
    return real().fopen(state_materialize(path + 1).c_str(), mode);
}

int plain_file_access(const char *path, int how)
{
    return real().access(state_materialize(path + 1).c_str(), how);
}

}  // namespace bsim
