// State-directory access for both simulator libraries: reads and atomic
// writes of the small text files under $BOARDSIM_STATE, with the built-in
// defaults behind every missing file. Only raw system calls touch the disk.
#include "state.h"

#include "defaults.h"
#include "sys.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <map>
#include <mutex>
#include <string_view>

namespace bsim {

namespace {

// Writes made while no state directory is set live here, so a value set
// through the driver library can still be read back by the same process.
std::mutex g_overlayLock;
std::map<std::string, std::string> g_overlay;

const DefaultFile *find_default(const std::string &rel)
{
    for (size_t i = 0; i < kDefaultFileCount; ++i) {
        if (rel == kDefaultFiles[i].path)
            return &kDefaultFiles[i];
    }
    return nullptr;
}

bool has_default_under(const std::string &dir)
{
    std::string prefix = dir + "/";
    for (size_t i = 0; i < kDefaultFileCount; ++i) {
        if (std::string_view(kDefaultFiles[i].path).starts_with(prefix))
            return true;
    }
    return false;
}

std::optional<std::string> read_file(const std::string &path)
{
    int fd = sys::open(path.c_str(), O_RDONLY);
    if (fd < 0)
        return std::nullopt;
    std::string out;
    char buf[4096];
    for (;;) {
        ssize_t n = sys::read(fd, buf, sizeof buf);
        if (n < 0 && errno == EINTR)
            continue;
        if (n < 0 && errno == EISDIR) {
            sys::close(fd);
            return std::nullopt;
        }
        if (n <= 0)
            break;
        out.append(buf, static_cast<size_t>(n));
    }
    sys::close(fd);
    return out;
}

bool write_all(int fd, const std::string &data)
{
    size_t done = 0;
    while (done < data.size()) {
        ssize_t n = sys::write(fd, data.data() + done, data.size() - done);
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            return false;
        done += static_cast<size_t>(n);
    }
    return true;
}

bool write_file(const std::string &path, const std::string &content)
{
    if (!make_parents(path))
        return false;
    std::string tmp = path + ".tmp" + std::to_string(sys::tid());
    int fd = sys::open(tmp.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    if (fd < 0)
        return false;
    bool ok = write_all(fd, content);
    sys::close(fd);
    if (!ok || sys::rename(tmp.c_str(), path.c_str()) != 0) {
        int saved = errno;
        sys::unlink(tmp.c_str());
        errno = saved;
        return false;
    }
    return true;
}

bool on_disk(const std::string &rel, struct stat &st)
{
    std::string path = state_path(rel);
    return !path.empty() && sys::stat(path.c_str(), &st) == 0;
}

bool top_on_disk(const std::string &rel)
{
    struct stat st {};
    size_t slash = rel.find('/');
    return slash != std::string::npos && on_disk(rel.substr(0, slash), st);
}

// A top-level directory comes into being with its defaults, so that writing
// one file into it does not remove the others from the board.
void seed_top(const std::string &rel)
{
    size_t slash = rel.find('/');
    if (slash == std::string::npos || top_on_disk(rel))
        return;
    std::string prefix = rel.substr(0, slash + 1);
    for (size_t i = 0; i < kDefaultFileCount; ++i) {
        const DefaultFile &d = kDefaultFiles[i];
        if (std::string_view(d.path).starts_with(prefix))
            write_file(state_path(d.path), std::string(d.data, d.len));
    }
}

std::string trim(const std::string &s)
{
    size_t b = s.find_first_not_of(" \t\r\n");
    if (b == std::string::npos)
        return "";
    size_t e = s.find_last_not_of(" \t\r\n");
    return s.substr(b, e - b + 1);
}

}  // namespace

std::string state_dir()
{
    const char *dir = std::getenv("BOARDSIM_STATE");
    return (dir && *dir) ? std::string(dir) : std::string();
}

std::string state_path(const std::string &rel)
{
    std::string dir = state_dir();
    return dir.empty() ? dir : dir + "/" + rel;
}

std::optional<std::string> state_read(const std::string &rel)
{
    std::string path = state_path(rel);
    if (!path.empty()) {
        if (auto got = read_file(path))
            return got;
    } else {
        std::lock_guard<std::mutex> hold(g_overlayLock);
        auto it = g_overlay.find(rel);
        if (it != g_overlay.end())
            return it->second;
    }
    if (const DefaultFile *d = find_default(rel))
        return std::string(d->data, d->len);
    return std::nullopt;
}

bool make_parents(const std::string &path)
{
    struct stat st {};
    size_t last = path.rfind('/');
    if (last == std::string::npos || last == 0 || sys::stat(path.substr(0, last).c_str(), &st) == 0)
        return true;  // the usual case: the directory is already there
    for (size_t pos = path.find('/', 1); pos != std::string::npos; pos = path.find('/', pos + 1)) {
        std::string part = path.substr(0, pos);
        if (sys::mkdir(part.c_str(), 0755) != 0 && errno != EEXIST)
            return false;
    }
    return true;
}

bool state_write(const std::string &rel, const std::string &content)
{
    std::string path = state_path(rel);
    if (path.empty()) {
        std::lock_guard<std::mutex> hold(g_overlayLock);
        g_overlay[rel] = content;
        return true;
    }
    seed_top(rel);
    return write_file(path, content);
}

bool state_exists(const std::string &rel)
{
    struct stat st {};
    if (on_disk(rel, st))
        return true;
    if (state_dir().empty()) {
        std::lock_guard<std::mutex> hold(g_overlayLock);
        if (g_overlay.count(rel))
            return true;
    } else if (top_on_disk(rel)) {
        return false;
    }
    return find_default(rel) != nullptr || has_default_under(rel);
}

bool state_has_file(const std::string &rel)
{
    struct stat st {};
    if (on_disk(rel, st))
        return S_ISREG(st.st_mode);
    return state_exists(rel) && !has_default_under(rel);
}

std::string state_materialize(const std::string &rel)
{
    std::string path = state_path(rel);
    if (path.empty())
        return path;
    struct stat st {};
    if (sys::stat(path.c_str(), &st) == 0)
        return path;
    if (const DefaultFile *d = find_default(rel))
        state_write(rel, std::string(d->data, d->len));
    else
        make_parents(path);
    return path;
}

std::vector<std::string> split_words(const std::string &text)
{
    std::vector<std::string> words;
    size_t pos = 0;
    for (;;) {
        size_t b = text.find_first_not_of(" \t\r\n", pos);
        if (b == std::string::npos)
            return words;
        pos = text.find_first_of(" \t\r\n", b);
        words.push_back(text.substr(b, pos == std::string::npos ? std::string::npos : pos - b));
    }
}

std::optional<std::string> key_value(const std::string &text, const std::string &key)
{
    std::string want = key + "=";
    for (const std::string &w : split_words(text)) {
        if (w.starts_with(want))
            return w.substr(want.size());
    }
    return std::nullopt;
}

std::string state_word(const std::string &rel, const std::string &def)
{
    auto words = split_words(state_read(rel).value_or(""));
    return words.empty() ? def : words[0];
}

int64_t state_slot(const std::string &rel, size_t i)
{
    auto words = split_words(state_read(rel).value_or(""));
    int64_t v = 0;
    return i < words.size() && parse_num(words[i], v) ? v : 0;
}

bool parse_num(const std::string &text, int64_t &out)
{
    std::string t = trim(text);
    if (t.empty())
        return false;
    errno = 0;
    char *end = nullptr;
    long long v = (t[0] == '-') ? std::strtoll(t.c_str(), &end, 0)
                                : static_cast<long long>(std::strtoull(t.c_str(), &end, 0));
    if (errno != 0 || end == t.c_str() || *end != '\0')
        return false;
    out = v;
    return true;
}

int64_t state_num(const std::string &rel, int64_t def)
{
    int64_t v = 0;
    return parse_num(state_word(rel, ""), v) ? v : def;
}

std::string state_key(const std::string &rel, const std::string &key, const std::string &def)
{
    return key_value(state_read(rel).value_or(""), key).value_or(def);
}

int64_t state_keynum(const std::string &rel, const std::string &key, int64_t def)
{
    int64_t v = 0;
    return parse_num(state_key(rel, key, ""), v) ? v : def;
}

}  // namespace bsim
