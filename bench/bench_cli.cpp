// Cost of the command engine per typed line on a tree shaped like the whole
// tool's: 27 modules' rules, about 120 paths of 4 to 10 words, keywords and
// <Integer>/<String> slots. Each line goes through CLI_MainProcess (tokenise,
// match, validate, record, frame) with handlers that return at once; the
// engine's output goes to /dev/null through a large stdio buffer. Touches no
// board node.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <sstream>
#include <string>
#include <unistd.h>
#include <vector>

#include "equ_cli_cmd.h"

namespace {

const EQU_KEY_HELP_INFO_S kBenchHelp[] = {
    {"word", "a keyword of the benchmark tree", "zh-word"},
};

uint64_t benchPass(CLI_CMD_PARA_S *)
{
    return 0;
}

uint64_t benchRange(const char *pcToken, CLI_CMD_PARA_S *)
{
    int64_t lVal = CLI_StrtoL(pcToken);
    return (lVal < -100 || lVal > 100) ? 1 : 0;
}

// One module per entry; "#I" is an <Integer> slot, "#S" a <String> slot.
const std::vector<std::vector<const char *>> kModules = {
    {"set ip #I #S", "get ip #I", "set serverip #S", "get serverip"},
    {"set mac #I #S", "get mac #I", "test mac check #I"},
    {"test ethernet ping #I #S #I", "test ethernet ping all #S", "test fiber ping #I #S #I",
     "test fiber ping all #S"},
    {"test ethernet link #I", "test ethernet link all", "test fiber link #I",
     "test fiber link all"},
    {"test ethernet loopback #I #I #I #I", "test ethernet loopback all #I #I",
     "test fiber loopback #I #I #I #I", "test fiber loopback all #I #I",
     "test ethernet loopback #I #I #I #I #I #I"},
    {"test ethernet mode #I #S #S", "test ethernet mode get #I", "test fiber mode #I #S #S",
     "test fiber mode get #I"},
    {"test serial RS232 loopback #I #I #I #I", "test serial RS485 loopback #I #I #I #I",
     "test serial RS422 loopback #I #I #I #I", "test serial RS232 baudrate #I #I",
     "test serial RS485 baudrate #I #I", "test serial RS232 loopback #I #I #I #I #I #I"},
    {"test gps check #I", "test gps baudrate #I", "test gps info"},
    {"test harddisk present #S", "test harddisk present all", "test harddisk speed #S #I",
     "test harddisk smart #S", "test harddisk rw #S #I #I"},
    {"test esata present", "test esata speed #I", "test esata rw #I #I"},
    {"test usb present #I", "test usb present all", "test usb rw #I #I", "test usb speed #I"},
    {"test clear harddisk #S", "test clear flash #S", "test clear env", "test format harddisk #S"},
    {"test ram check", "test ram size #I", "test ram autotest #S", "test ram result"},
    {"test chipcheck #S", "test chipcheck all", "test chipreset #S", "test chipcheck #S #I #I"},
    {"test mainboard temperature #I #I", "test netboard temperature #I #I", "test heat #S status",
     "test heat #S ctrl #S", "test mainboard temperature #I #I #I"},
    {"test led #S #S", "test led all #S", "test led flick #S #I", "test led flick stop"},
    {"test button reset", "test button reset #I", "test button powerkey",
     "test button powerkey #I"},
    {"test watchdog enable", "test watchdog disable", "test watchdog feed #I",
     "test watchdog status"},
    {"test alarm #I #I", "test alarm all", "test alarm in #I", "test alarm out #I #S"},
    {"test power status", "test power #I status", "test power all"},
    {"test software version", "test software kill #S", "test software start #S",
     "test software check #S"},
    {"test pcie status", "test pcie #I status", "test pcie speed #I #I"},
    {"test x4tox2 set #I", "test x4tox2 get", "test x4tox2 reset #I #I"},
    {"test edid read #I", "test edid check #I #S", "test cpuinfo", "test cpuinfo freq"},
    {"set rtc date #S", "set rtc time #S", "get rtc date", "get rtc time", "test rtc check #I",
     "set timezone #S", "get timezone"},
    {"runtime set #I", "runtime get", "runtime clear", "runtime check #I #I"},
    {"download manuinfo #S", "upload manuinfo #S", "display manuinfo", "check manuinfo #S",
     "download logo #S", "upload logo #S", "check logo #S #S"},
};

// Builds one module's template from its rules: each distinct word (or slot)
// becomes one element, then the rules are installed by element number.
void benchRegister(const std::vector<const char *> &vecRules)
{
    CLI_CMD_TEMPLET_S *pT = CLI_NewCmdTemplet();
    std::vector<std::string> vecWords;
    std::vector<std::string> vecRuleTexts;
    for (const char *pcRule : vecRules) {
        std::istringstream in(pcRule);
        std::string strWord;
        std::string strRule;
        while (in >> strWord) {
            size_t ulNum = 0;
            while (ulNum < vecWords.size() && vecWords[ulNum] != strWord) {
                ulNum++;
            }
            if (ulNum == vecWords.size()) {
                vecWords.push_back(strWord);
                auto ulElem = static_cast<uint32_t>(ulNum + 1);
                if (strWord == "#I") {
                    CLI_AddPara(pT, ulElem, CLI_INTEGER, benchRange, kBenchHelp, 0);
                } else if (strWord == "#S") {
                    CLI_AddPara(pT, ulElem, CLI_STRING, nullptr, kBenchHelp, 0);
                } else {
                    CLI_AddKey(pT, ulElem, strWord.c_str(), kBenchHelp, 0);
                }
            }
            strRule += (strRule.empty() ? "$" : " $") + std::to_string(ulNum + 1);
        }
        vecRuleTexts.push_back(strRule);
    }
    for (const std::string &strRule : vecRuleTexts) {
        CLI_InstallCmd(pT, static_cast<int64_t>(vecWords.size()), strRule.c_str(), benchPass);
    }
    CLI_FreeCmdTemplet(pT, static_cast<int64_t>(vecWords.size()));
}

void benchEnsureTree()
{
    static bool bBuilt = false;
    if (!bBuilt) {
        for (const auto &vecRules : kModules) {
            benchRegister(vecRules);
        }
        snprintf(gszSysPrompt, sizeof(gszSysPrompt), "[%s-equipment]", "K5T2-B01-16IPC");
        bBuilt = true;
    }
}

// Engine output goes to /dev/null for the life of one benchmark run; a big
// buffer keeps write calls out of the figures.
char g_acBenchBuf[1 << 16];
const bool g_bBenchBuffered = setvbuf(stdout, g_acBenchBuf, _IOFBF, sizeof(g_acBenchBuf)) == 0;

class BenchQuiet {
  public:
    BenchQuiet()
    {
        fflush(stdout);
        m_iSaved = dup(STDOUT_FILENO);
        int iNull = open("/dev/null", O_WRONLY);
        dup2(iNull, STDOUT_FILENO);
        close(iNull);
    }
    ~BenchQuiet()
    {
        fflush(stdout);
        dup2(m_iSaved, STDOUT_FILENO);
        close(m_iSaved);
    }

  private:
    int m_iSaved = -1;
};

void benchLine(benchmark::State &state, const char *pcLine)
{
    benchEnsureTree();
    BenchQuiet quiet;
    size_t ulLen = strlen(pcLine) + 1;
    for (auto _ : state) {
        // The loop hands every line over in gszLineBuf; completion rewrites it.
        memcpy(gszLineBuf, pcLine, ulLen);
        benchmark::DoNotOptimize(CLI_MainProcess(gszLineBuf, 1));
    }
    state.counters["buffered"] = g_bBenchBuffered ? 1 : 0;
}

void BM_Tokenise5Words(benchmark::State &state)
{
    char aszArgv[CLI_MAX_TOKEN_NUM][CLI_MAX_TOKEN_LEN];
    int64_t lArgc = 0;
    for (auto _ : state) {
        CLI_GetCmdArg("test mainboard temperature -10 60", aszArgv, &lArgc);
        benchmark::DoNotOptimize(aszArgv[0][0]);
    }
}
BENCHMARK(BM_Tokenise5Words);

BENCHMARK_CAPTURE(benchLine, run_5_words, "test mainboard temperature -10 60");
BENCHMARK_CAPTURE(benchLine, run_5_words_abbreviated, "t mai temp 20 30");
BENCHMARK_CAPTURE(benchLine, run_4_words_string, "test harddisk smart sda");
BENCHMARK_CAPTURE(benchLine, run_10_words, "test serial RS232 loopback 0 64 10 1 2 3");
BENCHMARK_CAPTURE(benchLine, run_8_words, "test ethernet loopback 0 1 64 100");
BENCHMARK_CAPTURE(benchLine, wrong_word_pointer, "test mainboard temprature 1 2");
BENCHMARK_CAPTURE(benchLine, validator_refuses, "test mainboard temperature 101 2");
BENCHMARK_CAPTURE(benchLine, help_whole_level, "test ?");
BENCHMARK_CAPTURE(benchLine, help_prefix, "test se?");
BENCHMARK_CAPTURE(benchLine, help_deep_level, "test serial RS232 ?");
BENCHMARK_CAPTURE(benchLine, complete_word, "test mai\t");
BENCHMARK_CAPTURE(benchLine, complete_candidates, "test e\t");

}  // namespace
