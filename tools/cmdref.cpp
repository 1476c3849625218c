// cmdref: writes the operator's command reference from the command tree that
// the default board's registration functions build, so that the reference
// lists exactly what the tool accepts and never goes stale.
//
//   cmdref SRC_DIR OUT_FILE [EXAMPLES]
//
// SRC_DIR is the repository: the default board's identifier comes from
// sim/default-state/board_id, and each module's title, "Pass:", "Needs:" and
// "Departs from" paragraphs and "Values:" lines come from the header comment
// of its src/equ_cmd_*.cpp. EXAMPLES is what tools/cmdref-capture recorded on
// the simulated board ("> LINE", then "| " output lines): each example is
// shown under the unit whose command it runs, and generation fails when a
// command has none or a line is not a command. A
// stated range "LO~HI" is tried against the parameter's own validator at its
// four bounds (LO and HI accepted, LO-1 and HI+1 refused), and generation
// fails when they disagree; every parameter that has a validator must have a
// "Values:" line.
#include <fcntl.h>
#include <iconv.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

#include "equ_board.h"
#include "equ_cli_cmd.h"
#include "equ_cmd.h"

namespace {

namespace fs = std::filesystem;

#define CMDREF_NAMES(...) #__VA_ARGS__
#define CMDREF_STR(...)   CMDREF_NAMES(__VA_ARGS__)

const EQU_CMD_REG_PF kTable[] = {EQU_CMD_TBL_K5T2B01};

const char *const kHowToRead =
    "A word may be shortened while it stays unambiguous. Each unit lists its commands, then "
    "every word with what `?` lists for it and its help text: where they differ (`?` lists "
    "`RS232` for the word `232`), type the word of the first column. `[...]` may be left out. "
    "`<name: values>` is a parameter: the name `?` lists, and the values its module states it "
    "takes. Where the tool checks a value as it is typed, a range `LO~HI` among them was tried "
    "against that check when this file was made; \"any number\" or \"any word\" means that "
    "nothing checks it at the prompt. Every command ends with `test result:pass` or `test "
    "result:fail`; each unit says what they mean.";

struct Module {
    std::string name;                           // EQU_Cmd_Serial
    std::string title;                          // first line of the header comment
    std::vector<std::string> paras;             // "Pass:", "Needs:", "Departs from", one line each
    std::map<std::string, std::string> values;  // placeholder -> accepted values
};

// A command line: the words from the top level, optional tails in brackets.
struct Line {
    std::vector<const CLI_CMD_NODE_S *> nodes;
    std::string text;
};

[[noreturn]] void die(const std::string &msg)
{
    fprintf(stderr, "cmdref: %s\n", msg.c_str());
    exit(1);
}

std::string read_file(const fs::path &path)
{
    std::ifstream in(path);
    if (!in) {
        die("cannot read " + path.string());
    }
    std::stringstream ss;
    ss << in.rdbuf();
    return ss.str();
}

std::vector<std::string> table_names()
{
    std::vector<std::string> names;
    std::stringstream ss(CMDREF_STR(EQU_CMD_TBL_K5T2B01));
    for (std::string name; std::getline(ss, name, ',');) {
        names.push_back(std::regex_replace(name, std::regex("\\s+"), ""));
    }
    return names;
}

// The header comment: the leading "//" lines, without the slashes.
std::vector<std::string> header_of(const std::string &text)
{
    std::vector<std::string> lines;
    std::stringstream ss(text);
    for (std::string line; std::getline(ss, line) && line.rfind("//", 0) == 0;) {
        lines.push_back(line.size() > 3 ? line.substr(3) : "");
    }
    return lines;
}

Module parse_module(const fs::path &src, const std::string &name)
{
    static const std::regex value_re("  <([^>]+)>\\s+(.+)");
    for (const auto &entry : fs::directory_iterator(src / "src")) {
        std::string text = read_file(entry.path());
        if (text.find("\nvoid " + name + "(void)\n") == std::string::npos) {
            continue;
        }
        Module mod{name, "", {}, {}};
        std::vector<std::string> head = header_of(text);
        mod.title = head.empty() ? name : head[0].substr(0, head[0].find(':'));
        if (!mod.title.empty() && mod.title.back() == '.') {
            mod.title.pop_back();
        }
        bool in_para = false;
        bool in_values = false;
        std::string key;  // the value whose description an indented line goes on with
        for (const std::string &line : head) {
            std::smatch m;
            if (line.empty()) {
                in_para = in_values = false;
                key.clear();
            } else if (in_para) {
                mod.paras.back() += " " + line;
            } else if (line.rfind("Pass:", 0) == 0 || line.rfind("Needs:", 0) == 0 ||
                       line.rfind("Departs from", 0) == 0) {
                mod.paras.push_back(line);
                in_para = true;
            } else if (line == "Values:") {
                in_values = true;
            } else if (in_values && std::regex_match(line, m, value_re)) {
                key = m[1];
                mod.values[key] = m[2];
            } else if (!key.empty() && line.rfind("    ", 0) == 0) {
                mod.values[key] += " " + line.substr(line.find_first_not_of(' '));
            }
        }
        auto pass = std::find_if(mod.paras.begin(), mod.paras.end(), [](const std::string &p) {
            return p.rfind("Pass:", 0) == 0 && p.find(" Fail: ") != std::string::npos;
        });
        if (pass == mod.paras.end()) {
            die(entry.path().string() +
                ": the header comment has no \"Pass: ... Fail: ...\" paragraph");
        }
        return mod;
    }
    die("no source file defines " + name);
}

bool is_param(const CLI_CMD_NODE_S *n)
{
    return n->enKind != CLI_NODE_KEYWORD;
}

const EQU_KEY_HELP_INFO_S &help_of(const CLI_CMD_NODE_S *n)
{
    return n->pstHelpTbl[n->ulHelpIdx];
}

// Validators print their refusals; the reference is written to a file, so
// standard output is silenced while one runs.
bool accepts(const CLI_CMD_NODE_S *n, long value)
{
    CLI_CMD_PARA_S para{};
    para.ulLanguage = 1;
    std::string token = std::to_string(value);
    fflush(stdout);
    int saved = dup(1);
    int null = open("/dev/null", O_WRONLY);
    dup2(null, 1);
    bool ok = n->pfCheck(token.c_str(), &para) == 0;
    fflush(stdout);
    dup2(saved, 1);
    close(null);
    close(saved);
    return ok;
}

void check_range(const Module &mod, const CLI_CMD_NODE_S *n, const std::string &values)
{
    std::smatch m;
    if (n->pfCheck == nullptr || !std::regex_search(values, m, std::regex("^(-?\\d+)~(-?\\d+)"))) {
        return;
    }
    long lo = std::stol(m[1]);
    long hi = std::stol(m[2]);
    if (!accepts(n, lo) || !accepts(n, hi) || accepts(n, lo - 1) || accepts(n, hi + 1)) {
        die(mod.name + ": <" + help_of(n).pcKey + "> is not " + std::string(m[0]) +
            " as its validator sees it");
    }
}

std::string placeholder(const Module &mod, const CLI_CMD_NODE_S *n)
{
    std::string key = help_of(n).pcKey;
    auto it = mod.values.find(key);
    if (it != mod.values.end()) {
        check_range(mod, n, it->second);
        return "<" + key + ": " + it->second + ">";
    }
    if (n->pfCheck != nullptr) {
        die(mod.name + ": <" + key + "> has a validator but no \"Values:\" line");
    }
    return "<" + key + ": any " + (n->enKind == CLI_NODE_INTEGER ? "number" : "word") + ">";
}

std::vector<const CLI_CMD_NODE_S *> level(const CLI_CMD_NODE_S *first)
{
    std::vector<const CLI_CMD_NODE_S *> nodes;
    for (const CLI_CMD_NODE_S *n = first; n != nullptr; n = n->pstBrother) {
        nodes.push_back(n);
    }
    return nodes;
}

// Every command in the subtree of n, each beginning with n's word. A command
// that one longer command extends is folded into it as an optional tail.
std::vector<Line> expand(const CLI_CMD_NODE_S *n,
                         const std::map<const CLI_CMD_NODE_S *, int> &owner,
                         const std::vector<Module> &mods)
{
    std::string word = is_param(n) ? placeholder(mods[owner.at(n)], n) : std::string(n->szKey);
    std::vector<Line> tails;
    for (const CLI_CMD_NODE_S *son : level(n->pstSon)) {
        for (Line &t : expand(son, owner, mods)) {
            tails.push_back(std::move(t));
        }
    }
    std::vector<Line> out;
    if (n->pfHandler != nullptr && tails.size() == 1) {
        tails[0].text = "[" + tails[0].text + "]";
    } else if (n->pfHandler != nullptr) {
        out.push_back({{n}, word});
    }
    for (Line &t : tails) {
        t.nodes.insert(t.nodes.begin(), n);
        t.text = word + " " + t.text;
        out.push_back(std::move(t));
    }
    return out;
}

void walk(const CLI_CMD_NODE_S *n, const std::function<void(const CLI_CMD_NODE_S *)> &fn)
{
    for (; n != nullptr; n = n->pstBrother) {
        fn(n);
        walk(n->pstSon, fn);
    }
}

std::string anchor(const std::string &title)
{
    std::string a;
    for (char c : title) {
        if (isalnum(static_cast<unsigned char>(c))) {
            a += static_cast<char>(tolower(static_cast<unsigned char>(c)));
        } else if (c == ' ' || c == '-') {
            a += '-';
        }
    }
    return a;
}

// Help texts are stored as the terminal shows them, in GBK; the reference is
// UTF-8, and a bar would end its table cell.
std::string cell(const char *text)
{
    static iconv_t cd = iconv_open("UTF-8", "GBK");
    std::string in = text;
    std::string utf8(in.size() * 2, '\0');
    char *src = in.data();
    char *dst = utf8.data();
    size_t src_left = in.size();
    size_t dst_left = utf8.size();
    if (iconv(cd, &src, &src_left, &dst, &dst_left) == static_cast<size_t>(-1)) {
        die(std::string("help text is not GBK: ") + text);
    }
    utf8.resize(utf8.size() - dst_left);
    return std::regex_replace(utf8, std::regex("\\|"), "\\|");
}

// One example as captured: the line typed and what the board printed.
struct Example {
    std::string line;
    std::string shown;
};

std::vector<Example> read_examples(const fs::path &path)
{
    std::vector<Example> examples;
    std::stringstream ss(read_file(path));
    for (std::string row; std::getline(ss, row);) {
        if (row.rfind("> ", 0) == 0) {
            examples.push_back({row.substr(2), ""});
        } else if (row.rfind("|", 0) == 0 && !examples.empty()) {
            examples.back().shown += row.substr(row.size() > 1 ? 2 : 1) + "\n";
        } else {
            die(path.string() + ": not an example record: " + row);
        }
    }
    return examples;
}

// The node that ends the command a line runs, matched word by word as the
// engine matches them; null when the line is no complete command.
const CLI_CMD_NODE_S *command_of(const std::string &line)
{
    std::stringstream ss(line);
    CLI_CMD_NODE_S *level = gpstCmdTempletRoot;
    CLI_CMD_NODE_S *node = nullptr;
    for (std::string word; ss >> word;) {
        // 0: a parameter slot took it, 1: one keyword; anything else is refused.
        int64_t lMatch =
            level == nullptr ? -1 : CLI_MatchInputInBrotherCmd(word.c_str(), level, &node);
        if (lMatch != 0 && lMatch != 1) {
            return nullptr;
        }
        level = node->pstSon;
    }
    return node != nullptr && node->pfHandler != nullptr ? node : nullptr;
}

void write_examples(std::ostream &out, const std::string &model,
                    const std::vector<const Example *> &examples)
{
    if (examples.empty()) {
        return;
    }
    out << "\nOn the default simulated board, in the order `make docs` runs them (a line "
           "before its precondition shows the failure):\n\n```\n";
    for (const Example *ex : examples) {
        out << "[" << model << "-equipment]" << ex->line << ex->shown;
    }
    out << "```\n";
}

// A unit: its paragraphs, its commands as typed, then each word once with
// what "?" shows for it (a word whose help differs by place gets a row for
// each), then its examples.
void write_unit(std::ostream &out, const Module &mod, const std::vector<Line> &lines,
                const std::vector<const Example *> &examples)
{
    out << "\n## " << mod.title << "\n\n";
    for (const std::string &para : mod.paras) {
        out << para << "\n\n";
    }
    out << "```\n";
    for (const Line &line : lines) {
        out << line.text << "\n";
    }
    out << "```\n\n| Word | `?` lists | Help |\n|---|---|---|\n";
    std::vector<std::string> rows;
    for (const Line &line : lines) {
        for (const CLI_CMD_NODE_S *n : line.nodes) {
            const EQU_KEY_HELP_INFO_S &h = help_of(n);
            std::string word = is_param(n) ? "<" + cell(h.pcKey) + ">" : std::string(n->szKey);
            std::string row =
                "| `" + word + "` | " + cell(h.pcKey) + " | " + cell(h.pcHelpEn) + " |";
            if (std::find(rows.begin(), rows.end(), row) == rows.end()) {
                rows.push_back(row);
                out << row << "\n";
            }
        }
    }
    write_examples(out, gpstEquBoardDesc->pcModel, examples);
}

// The tree as the default board's registration functions build it, each node
// with the module that made it and each command's end with the module that
// installed it.
struct Registry {
    std::vector<Module> mods;
    std::map<const CLI_CMD_NODE_S *, int> owner;
    std::map<const CLI_CMD_NODE_S *, int> handler;
};

Registry register_board(const fs::path &src)
{
    std::vector<std::string> names = table_names();
    Registry reg;
    for (uint32_t i = 0; i < gpstEquBoardDesc->u32CmdNum; i++) {
        EQU_CMD_REG_PF fn = gpstEquBoardDesc->pfnCmdTbl[i];
        auto it = std::find(std::begin(kTable), std::end(kTable), fn);
        if (it == std::end(kTable)) {
            die("the board's command table holds a function outside EQU_CMD_TBL_K5T2B01");
        }
        reg.mods.push_back(parse_module(src, names[it - std::begin(kTable)]));
        fn();
        int idx = static_cast<int>(i);
        walk(gpstCmdTempletRoot, [&](const CLI_CMD_NODE_S *n) {
            reg.owner.emplace(n, idx);
            if (n->pfHandler != nullptr) {
                reg.handler.emplace(n, idx);
            }
        });
    }
    return reg;
}

// Each example under the unit of its command; every command needs one.
std::vector<std::vector<const Example *>> examples_by_mod(const Registry &reg,
                                                          const std::vector<Example> &examples)
{
    std::vector<std::vector<const Example *>> by_mod(reg.mods.size());
    if (examples.empty()) {
        return by_mod;
    }
    std::map<const CLI_CMD_NODE_S *, int> shown;
    for (const Example &ex : examples) {
        const CLI_CMD_NODE_S *end = command_of(ex.line);
        if (end == nullptr) {
            die("the example \"" + ex.line + "\" is not a command");
        }
        by_mod[reg.handler.at(end)].push_back(&ex);
        shown[end]++;
    }
    for (const auto &[node, mod] : reg.handler) {
        if (node->pfHandler != nullptr && shown.count(node) == 0) {
            die(reg.mods[mod].name + ": a command ending in \"" + node->szKey +
                "\" has no example in tools/cmdref-examples.txt");
        }
    }
    return by_mod;
}

void write_reference(std::ostream &out, const Registry &reg, uint32_t u32Id,
                     const std::vector<Example> &examples)
{
    std::vector<std::vector<const Example *>> shown = examples_by_mod(reg, examples);
    std::vector<std::vector<Line>> by_mod(reg.mods.size());
    size_t lines = 0;
    for (const CLI_CMD_NODE_S *top : level(gpstCmdTempletRoot)) {
        for (Line &line : expand(top, reg.owner, reg.mods)) {
            auto end = std::find_if(line.nodes.begin(), line.nodes.end(),
                                    [&](const CLI_CMD_NODE_S *n) { return reg.handler.count(n); });
            by_mod[reg.handler.at(*end)].push_back(std::move(line));
            lines++;
        }
    }
    const char *model = gpstEquBoardDesc->pcModel;
    out << "# Command reference\n\nEvery command that `cli` accepts on the " << model << " board 0x"
        << std::hex << u32Id << std::dec << ": " << reg.handler.size() << " commands in " << lines
        << " lines. `make docs` writes this file from the command "
        << "tree the tool builds; do not edit it by hand.\n\nThe commands are typed at the `["
        << model << "-equipment]` prompt (type `en_equipment` first). " << kHowToRead
        << "\n\n## Contents\n\n";
    for (size_t i = 0; i < reg.mods.size(); i++) {
        if (!by_mod[i].empty()) {
            out << "- [" << reg.mods[i].title << "](#" << anchor(reg.mods[i].title) << ")\n";
        }
    }
    for (size_t i = 0; i < reg.mods.size(); i++) {
        if (!by_mod[i].empty()) {
            write_unit(out, reg.mods[i], by_mod[i], shown[i]);
        }
    }
}

}  // namespace

int main(int argc, char *argv[])
{
    if (argc != 3 && argc != 4) {
        fprintf(stderr, "usage: cmdref SRC_DIR OUT_FILE [EXAMPLES]\n");
        return 2;
    }
    fs::path src = argv[1];
    uint32_t u32Id = std::stoul(read_file(src / "sim/default-state/board_id"), nullptr, 0);
    if (EQU_BoardDescCreat(u32Id, &gpstEquBoardDesc) != 0 || gpstEquBoardDesc == nullptr ||
        gpstEquBoardDesc->u32BoardId != u32Id) {
        die("no board record for the default board");
    }
    Registry reg = register_board(src);
    std::vector<Example> examples = argc == 4 ? read_examples(argv[3]) : std::vector<Example>{};
    std::ofstream out(argv[2]);
    write_reference(out, reg, u32Id, examples);
    return out ? 0 : 1;
}
