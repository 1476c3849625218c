// The journal: one line per driver call, open, ioctl and close, appended to
// $BOARDSIM_STATE/journal so tests can assert what the tool asked for:
//   <kind> <name> [<request>] <field>=<value> ... -> <result> [errno=<NAME>] at=<SECONDS>
// Also the debug log ($BOARDSIM_STATE/debug.log, BOARDSIM_DEBUG=1).
#pragma once
#include <cstddef>
#include <cstdint>
#include <string>

namespace bsim {

class JournalLine {
  public:
    JournalLine(const char *kind, const std::string &name);
    void request(uint32_t req);
    void num(const char *key, int64_t v);
    void hex(const char *key, uint64_t v);
    void text(const char *key, const char *s, size_t max);  // quoted, escaped
    void bytes(const char *key, const void *p, size_t n);   // 00,07,ff
    void word(const char *key, const std::string &v);       // as is
    // Ends the line with the result; err != 0 adds errno=<NAME>. Appends it.
    void finish(long result, int err);

  private:
    std::string line_;
    std::string at_;  // " at=SECONDS.MICROSECONDS", when the call began
};

// Symbolic name of an errno value ("EIO"), or its number as text.
std::string errno_name(int err);
// errno value for a name or number; 0 if unknown.
int errno_value(const std::string &name);

// BOARDSIM_DEBUG=1, read once per process.
bool debug_enabled();
// Appends a line to the debug log; errno is left as it was.
void debug_line(const std::string &msg);

// Debug output that costs one test of a cached flag when off: the message
// is built by make() only when it will be written.
template <class Make>
void debug(Make &&make)
{
    if (debug_enabled())
        debug_line(make());
}

}  // namespace bsim
