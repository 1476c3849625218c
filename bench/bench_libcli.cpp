// libcli's side of the benchmark: the same rules as a libcli command tree
// (keywords as commands, trailing slots as positional arguments with the same
// range check), the same lines through cli_run_command, output to stdout.
#include <libcli.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <sstream>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>
#include <string>
#include <vector>

#include "bench_tree.h"

namespace {

struct cli_def *g_pstCli = nullptr;   // runs typed lines
struct cli_def *g_pstLoop = nullptr;  // answers "?" in its own loop
int g_aiSock[2] = {-1, -1};
std::thread g_thLoop;
std::map<std::string, struct cli_command *> g_mapCommands;
std::map<struct cli_command *, size_t> g_mapSlots;

int bench_pass(struct cli_def *, const char *, char **, int)
{
    return CLI_OK;
}

int bench_range(struct cli_def *, const char *, const char *pcValue)
{
    char *pcEnd = nullptr;
    errno = 0;
    long lVal = strtol(pcValue, &pcEnd, 10);
    bool bOk = *pcValue != '\0' && *pcEnd == '\0' && errno == 0 && lVal >= -100 && lVal <= 100;
    return bOk ? CLI_OK : CLI_ERROR;
}

void bench_print(struct cli_def *, const char *pcText)
{
    fputs(pcText, stdout);
    fputs("\r\n", stdout);
}

struct cli_command *bench_command(struct cli_def *pstCli, const std::string &strPath,
                                  struct cli_command *pstParent, const std::string &strWord)
{
    auto it = g_mapCommands.find(strPath);
    if (it != g_mapCommands.end()) {
        return it->second;
    }
    struct cli_command *pstCmd = cli_register_command(pstCli, pstParent, strWord.c_str(), nullptr,
                                                      PRIVILEGE_UNPRIVILEGED, MODE_EXEC, "word");
    g_mapCommands[strPath] = pstCmd;
    return pstCmd;
}

// The slots of a command's first rule are required, those that a later rule
// adds are optional. A keyword after a slot cannot be a libcli command, so
// such a rule's words after its keywords stay plain arguments.
void bench_add_slots(struct cli_command *pstCmd, const std::vector<std::string> &vecSlots,
                     bool bFirstRule)
{
    size_t &ulHave = g_mapSlots[pstCmd];
    for (size_t i = ulHave; i < vecSlots.size(); i++) {
        std::string strName = "arg" + std::to_string(i);
        int iFlags = bFirstRule ? CLI_CMD_ARGUMENT : CLI_CMD_OPTIONAL_ARGUMENT;
        cli_register_optarg(pstCmd, strName.c_str(), iFlags, PRIVILEGE_UNPRIVILEGED, MODE_EXEC,
                            "slot", nullptr, vecSlots[i] == "#I" ? bench_range : nullptr, nullptr);
    }
    ulHave = std::max(ulHave, vecSlots.size());
}

void bench_add_rule(struct cli_def *pstCli, const char *pcRule)
{
    std::istringstream in(pcRule);
    std::vector<std::string> vecWords;
    for (std::string strWord; in >> strWord;) {
        vecWords.push_back(strWord);
    }
    size_t ulKeys = 0;
    while (ulKeys < vecWords.size() && vecWords[ulKeys][0] != '#') {
        ulKeys++;
    }
    struct cli_command *pstCmd = nullptr;
    std::string strPath;
    for (size_t i = 0; i < ulKeys; i++) {
        strPath += " " + vecWords[i];
        pstCmd = bench_command(pstCli, strPath, pstCmd, vecWords[i]);
    }
    bool bFirstRule = pstCmd->callback == nullptr;
    pstCmd->callback = bench_pass;
    bool bPlain = false;
    for (size_t i = ulKeys; i < vecWords.size(); i++) {
        bPlain = bPlain || vecWords[i][0] != '#';
    }
    if (!bPlain) {
        bench_add_slots(pstCmd, {vecWords.begin() + static_cast<long>(ulKeys), vecWords.end()},
                        bFirstRule);
    }
}

struct cli_def *bench_new_tree()
{
    g_mapCommands.clear();
    g_mapSlots.clear();
    struct cli_def *pstCli = cli_init();
    cli_print_callback(pstCli, bench_print);
    for (const auto &vecRules : bench_modules()) {
        for (const char *pcRule : vecRules) {
            bench_add_rule(pstCli, pcRule);
        }
    }
    return pstCli;
}

// Sends keys to the loop and reads its answer up to the given number of
// prompts ("#" appears in nothing else the loop writes).
void bench_exchange(const std::string &strKeys, int iPrompts)
{
    if (write(g_aiSock[0], strKeys.data(), strKeys.size()) < 0) {
        return;
    }
    char acBuf[4096];
    while (iPrompts > 0) {
        ssize_t lGot = read(g_aiSock[0], acBuf, sizeof(acBuf));
        if (lGot <= 0) {
            return;
        }
        iPrompts -= static_cast<int>(std::count(acBuf, acBuf + lGot, '#'));
    }
}

// Prompts the loop writes for the keys, counted once after it has settled.
int bench_prompts_for(const std::string &strKeys)
{
    if (write(g_aiSock[0], strKeys.data(), strKeys.size()) < 0) {
        return 0;
    }
    usleep(100000);
    int iPrompts = 0;
    char acBuf[4096];
    for (ssize_t lGot; (lGot = recv(g_aiSock[0], acBuf, sizeof(acBuf), MSG_DONTWAIT)) > 0;) {
        iPrompts += static_cast<int>(std::count(acBuf, acBuf + lGot, '#'));
    }
    return iPrompts;
}

void bench_start_loop()
{
    g_pstLoop = bench_new_tree();
    cli_telnet_protocol(g_pstLoop, 0);
    cli_set_hostname(g_pstLoop, "B");
    cli_set_promptchar(g_pstLoop, "#");
    if (socketpair(AF_UNIX, SOCK_STREAM, 0, g_aiSock) != 0) {
        return;
    }
    g_thLoop = std::thread([] { cli_loop(g_pstLoop, g_aiSock[1]); });
    bench_prompts_for("\r");
}

void bench_stop_loop()
{
    if (g_thLoop.joinable()) {
        shutdown(g_aiSock[0], SHUT_RDWR);
        g_thLoop.join();
        close(g_aiSock[0]);
    }
}

}  // namespace

bool bench_libcli_build()
{
    g_pstCli = bench_new_tree();
    bench_start_loop();
    atexit(bench_stop_loop);
    return true;
}

void bench_libcli_run(const char *pcLine)
{
    cli_run_command(g_pstCli, pcLine);
}

// libcli answers "?" only in its interactive loop, as a key: the line with
// "?" is typed, then cleared (Ctrl-U) and Enter closes the round.
void bench_libcli_help(const char *pcLine)
{
    static std::string s_strLine;
    static int s_iPrompts = 0;
    if (s_strLine != pcLine) {
        s_strLine = pcLine;
        s_iPrompts = bench_prompts_for(s_strLine + "\x15\r");
    }
    bench_exchange(s_strLine + "\x15\r", s_iPrompts);
}
