// libcli's side of the benchmark: the same rules as a libcli command tree
// (keywords as commands, trailing slots as positional arguments with the same
// range check), the same lines through cli_run_command, output to stdout.
#include <libcli.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
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

struct cli_def *g_pstCli = nullptr;
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

// Time per round of libcli's own loop over keys typed ahead: one thread types
// every round and then "quit", another reads what the loop writes, and the
// loop runs here, so the timing holds no hand-over between rounds.
double bench_loop_ns(const std::string &strRound, long lRounds)
{
    struct cli_def *pstCli = bench_new_tree();
    cli_telnet_protocol(pstCli, 0);
    int aiSock[2];
    if (socketpair(AF_UNIX, SOCK_STREAM, 0, aiSock) != 0) {
        return 0;
    }
    std::string strKeys;
    for (long i = 0; i < lRounds; i++) {
        strKeys += strRound;
    }
    strKeys += "quit\r";
    std::thread thType([&] {
        for (size_t ulDone = 0; ulDone < strKeys.size();) {
            ssize_t lPut = write(aiSock[0], strKeys.data() + ulDone, strKeys.size() - ulDone);
            if (lPut <= 0) {
                return;
            }
            ulDone += static_cast<size_t>(lPut);
        }
    });
    std::thread thRead([&] {
        char acBuf[1 << 16];
        while (read(aiSock[0], acBuf, sizeof(acBuf)) > 0) {
        }
    });
    auto tStart = std::chrono::steady_clock::now();
    cli_loop(pstCli, aiSock[1]);
    std::chrono::duration<double, std::nano> dNs = std::chrono::steady_clock::now() - tStart;
    shutdown(aiSock[1], SHUT_RDWR);
    thType.join();
    thRead.join();
    close(aiSock[0]);
    close(aiSock[1]);
    cli_done(pstCli);
    return dNs.count() / static_cast<double>(lRounds);
}

}  // namespace

bool bench_libcli_build()
{
    g_pstCli = bench_new_tree();
    return true;
}

void bench_libcli_run(const char *pcLine)
{
    cli_run_command(g_pstCli, pcLine);
}

// libcli answers "?" only as a key typed in its loop: the key's own cost is
// a round of the line with "?" (then Ctrl-U to clear it) less the same
// round without the "?", each the best of a few tries of many rounds.
double bench_libcli_help_ns(const char *pcLine)
{
    std::string strWithout(pcLine);
    strWithout.pop_back();
    double dWith = 1e300;
    double dWithout = 1e300;
    for (int iTry = 0; iTry < 5; iTry++) {
        dWith = std::min(dWith, bench_loop_ns(std::string(pcLine) + "\x15", 2000));
        dWithout = std::min(dWithout, bench_loop_ns(strWithout + "\x15", 2000));
    }
    return dWith - dWithout;
}
