// Request records described as data: each request names its fields (offset,
// width, how to print, in or out), so one routine journals every request the
// same way and handlers only say what the board does.
#pragma once
#include "journal.h"

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>

namespace bsim {

enum class Kind : uint8_t { U8, U32, S32, U64, S64, Hex8, Hex32, Hex64, Text, Bytes, Plain };
enum : uint8_t { kIn = 1, kOut = 2 };

struct Field {
    const char *name;
    uint16_t off;
    uint16_t len;  // bytes; for Text the buffer size
    Kind kind;
    uint8_t dir;
};

// What a handler works on. rec is the caller's record (null for requests
// whose argument is a plain value, which is then in arg and never followed).
struct Call {
    void *rec;
    uintptr_t arg;
    int err = 0;  // set with a -1 result
};

using Handler = int (*)(Call &);

struct Request {
    uint32_t req;
    const Field *fields;
    size_t count;
    Handler fn;
};

template <size_t N>
constexpr Request make_request(uint32_t req, const Field (&fields)[N], Handler fn)
{
    return Request{req, fields, N, fn};
}

// Journals the in fields, applies fault injection (the specific target, then
// the general one), runs the handler, journals the out fields and the result.
// Returns the result; on failure err holds the errno to report.
long serve(JournalLine &line, const Request &r, Call &c, const std::string &specific,
           const std::string &general, int &err);

// Record accessors: unaligned-safe and bounds fixed by the caller's layout.
inline uint32_t get_u32(const void *rec, size_t off)
{
    uint32_t v;
    std::memcpy(&v, static_cast<const char *>(rec) + off, sizeof v);
    return v;
}
inline uint64_t get_u64(const void *rec, size_t off)
{
    uint64_t v;
    std::memcpy(&v, static_cast<const char *>(rec) + off, sizeof v);
    return v;
}
inline uint8_t get_u8(const void *rec, size_t off)
{
    return static_cast<const uint8_t *>(rec)[off];
}
inline void put_u32(void *rec, size_t off, uint32_t v)
{
    std::memcpy(static_cast<char *>(rec) + off, &v, sizeof v);
}
inline void put_u64(void *rec, size_t off, uint64_t v)
{
    std::memcpy(static_cast<char *>(rec) + off, &v, sizeof v);
}
inline void put_u8(void *rec, size_t off, uint8_t v)
{
    static_cast<uint8_t *>(rec)[off] = v;
}

// Text field of a record, cut at its NUL or at max bytes.
std::string get_text(const void *rec, size_t off, size_t max);
// Stores text into a record field of size max: cut to max-1, NUL, zero-filled.
void put_text(void *rec, size_t off, size_t max, const std::string &s);

// Fails the call: returns -1 with err.
inline int fail(Call &c, int err)
{
    c.err = err;
    return -1;
}

// Handler result of a state write: 0, or -1 with its errno.
int stored(Call &c, bool ok);

}  // namespace bsim
