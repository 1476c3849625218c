// The board's state: small text files under $BOARDSIM_STATE, one value per
// file, with the built-in defaults (compiled from sim/default-state) standing
// in for any file that is missing. Without BOARDSIM_STATE the defaults answer
// and writes stay in this process's memory.
#pragma once
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace bsim {

// The state directory, read from the environment at each call ("" if unset).
std::string state_dir();

// Absolute path of a state file, or "" without a state directory.
std::string state_path(const std::string &rel);

// Raw content of a state file, else its default, else nothing.
std::optional<std::string> state_read(const std::string &rel);

// Replaces a state file atomically (readers never see half a value),
// creating its directories; a top-level directory made this way starts with
// its defaults. Returns false with errno set on failure.
bool state_write(const std::string &rel, const std::string &content);

// True if the board has this file or directory. A top-level directory of
// the state, once on disk, is the whole truth about what exists under it (a
// deleted file is a removed device); until then the defaults decide.
bool state_exists(const std::string &rel);

// state_exists, for a regular file only.
bool state_has_file(const std::string &rel);

// Makes sure the state file exists on disk, seeding it from its default.
// Returns its absolute path, or "" without a state directory.
std::string state_materialize(const std::string &rel);

// The one reader of the state's text: whitespace-separated words, and
// "key=value" among them.
std::vector<std::string> split_words(const std::string &text);
std::optional<std::string> key_value(const std::string &text, const std::string &key);

// First word of a state file, or def.
std::string state_word(const std::string &rel, const std::string &def);

// Word i of a state file of per-slot words, as a number (missing: 0).
int64_t state_slot(const std::string &rel, size_t i);

// A number (decimal, 0x hex, or negative) from a state file, or def.
int64_t state_num(const std::string &rel, int64_t def);

// Text of "key=value" within a state file, or def.
std::string state_key(const std::string &rel, const std::string &key, const std::string &def);

// Number of "key=value" within a state file, or def.
int64_t state_keynum(const std::string &rel, const std::string &key, int64_t def);

// Parses a whole number written as a person would (dec, 0x hex, sign).
bool parse_num(const std::string &text, int64_t &out);

// Creates every missing directory leading to path (its last part excluded).
bool make_parents(const std::string &path);

}  // namespace bsim
