// The default board state, generated at build time from sim/default-state.
#pragma once
#include <cstddef>

namespace bsim {

struct DefaultFile {
    const char *path;  // relative to the state directory
    const char *data;
    size_t len;
};

extern const DefaultFile kDefaultFiles[];
extern const size_t kDefaultFileCount;

}  // namespace bsim
