// Fault injection: a file $BOARDSIM_STATE/fail/<target> makes the matching
// call fail. Lines in it (all optional): ret=<int> (default -1),
// errno=<NAME|number> (default EIO), skip=<n> (let n calls pass first),
// times=<n> (then fail n times; default: for ever). Calls are counted in
// fail/<target>.count under a lock, so several processes share the count.
#pragma once
#include <string>

namespace bsim {

struct Fault {
    long ret = -1;
    int err = 0;
};

// True if the call on this target is to fail now; fills the result to give.
bool fault_check(const std::string &target, Fault &out);

// Tries the specific target first, then the general one.
bool fault_check2(const std::string &specific, const std::string &general, Fault &out);

}  // namespace bsim
