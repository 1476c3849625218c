// Generic journaling of request records and the one path every request runs.
#include "records.h"

#include "fault.h"

#include <cerrno>

namespace bsim {

namespace {

void decode_field(JournalLine &line, const Field &f, const Call &c)
{
    const void *rec = c.rec;
    switch (f.kind) {
    case Kind::U8:
        line.num(f.name, get_u8(rec, f.off));
        break;
    case Kind::U32:
        line.num(f.name, get_u32(rec, f.off));
        break;
    case Kind::S32:
        line.num(f.name, static_cast<int32_t>(get_u32(rec, f.off)));
        break;
    case Kind::U64:
        line.num(f.name, static_cast<int64_t>(get_u64(rec, f.off)));
        break;
    case Kind::S64:
        line.num(f.name, static_cast<int64_t>(get_u64(rec, f.off)));
        break;
    case Kind::Hex8:
        line.hex(f.name, get_u8(rec, f.off));
        break;
    case Kind::Hex32:
        line.hex(f.name, get_u32(rec, f.off));
        break;
    case Kind::Hex64:
        line.hex(f.name, get_u64(rec, f.off));
        break;
    case Kind::Text:
        line.text(f.name, static_cast<const char *>(rec) + f.off, f.len);
        break;
    case Kind::Bytes:
        line.bytes(f.name, static_cast<const char *>(rec) + f.off, f.len);
        break;
    case Kind::Plain:
        line.num(f.name, static_cast<int64_t>(static_cast<long>(c.arg)));
        break;
    }
}

void decode(JournalLine &line, const Request &r, const Call &c, uint8_t dir)
{
    for (size_t i = 0; i < r.count; ++i) {
        const Field &f = r.fields[i];
        if ((f.dir & dir) == 0 || ((f.dir & kIn) && dir == kOut))
            continue;
        if (f.kind != Kind::Plain && c.rec == nullptr)
            continue;
        decode_field(line, f, c);
    }
}

bool needs_record(const Request &r)
{
    for (size_t i = 0; i < r.count; ++i) {
        if (r.fields[i].kind != Kind::Plain)
            return true;
    }
    return false;
}

}  // namespace

long serve(JournalLine &line, const Request &r, Call &c, const std::string &specific,
           const std::string &general, int &err)
{
    if (!needs_record(r))
        c.rec = nullptr;  // a plain value: never to be followed
    decode(line, r, c, kIn);
    Fault f;
    if (fault_check2(specific, general, f)) {
        err = f.err;
        line.finish(f.ret, f.err);
        return f.ret;
    }
    if (needs_record(r) && c.rec == nullptr) {
        err = EFAULT;
        line.finish(-1, err);
        return -1;
    }
    int rc = r.fn(c);
    err = rc ? (c.err ? c.err : EIO) : 0;
    if (rc == 0)
        decode(line, r, c, kOut);
    line.finish(rc, err);
    return rc;
}

std::string get_text(const void *rec, size_t off, size_t max)
{
    const char *p = static_cast<const char *>(rec) + off;
    size_t n = 0;
    while (n < max && p[n] != '\0')
        ++n;
    return std::string(p, n);
}

void put_text(void *rec, size_t off, size_t max, const std::string &s)
{
    char *p = static_cast<char *>(rec) + off;
    size_t n = s.size() < max ? s.size() : max - 1;
    std::memset(p, 0, max);
    std::memcpy(p, s.data(), n);
}

int stored(Call &c, bool ok)
{
    return ok ? 0 : fail(c, errno ? errno : EIO);
}

}  // namespace bsim
