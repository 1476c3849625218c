// The one place that decides what belongs to the board: which paths are
// board device nodes, which proc files are redirected into the state
// directory, and which open descriptors came from either.
#pragma once
#include <string>

namespace bsim {

enum class Claim { None, Node, Proc };

struct PathClaim {
    Claim kind = Claim::None;
    int id = -1;           // index into the path table
    std::string redirect;  // Proc: the file under $BOARDSIM_STATE/proc
};

// Absolute paths only; nothing is claimed without a state directory.
PathClaim claim_path(const char *path);

// The board path an id stands for ("/dev/hal_gpio").
const char *claim_name(int id);
bool claim_is_node(int id);

// Descriptor table: remembers which board path an fd was opened for.
void fd_track(int fd, int id);
// Forgets fd; returns its id, or -1 if it was not ours.
int fd_untrack(int fd);
// Id of a tracked fd still referring to what we opened, else -1.
int fd_lookup(int fd);

}  // namespace bsim
