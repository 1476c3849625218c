// This engine's side of the benchmark: the tree registered the way the test
// modules register theirs, lines run through CLI_MainProcess with handlers
// that return at once. Touches no board node.
#include <cstring>
#include <sstream>
#include <string>
#include <vector>

#include "bench_tree.h"
#include "equ_cli_cmd.h"

namespace {

const EQU_KEY_HELP_INFO_S kBenchHelp[] = {
    {"word", "a keyword of the benchmark tree", "zh-word"},
};

uint64_t bench_pass(CLI_CMD_PARA_S *)
{
    return 0;
}

uint64_t bench_range(const char *pcToken, CLI_CMD_PARA_S *)
{
    int64_t lVal = CLI_StrtoL(pcToken);
    return (lVal < -100 || lVal > 100) ? 1 : 0;
}

void bench_add_element(CLI_CMD_TEMPLET_S *pT, uint32_t ulElem, const std::string &strWord)
{
    if (strWord == "#I") {
        CLI_AddPara(pT, ulElem, CLI_INTEGER, bench_range, kBenchHelp, 0);
    } else if (strWord == "#S") {
        CLI_AddPara(pT, ulElem, CLI_STRING, nullptr, kBenchHelp, 0);
    } else {
        CLI_AddKey(pT, ulElem, strWord.c_str(), kBenchHelp, 0);
    }
}

// Each distinct word (or slot) of a module becomes one element, then the
// rules are installed by element number.
void bench_register(const std::vector<const char *> &vecRules)
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
                bench_add_element(pT, static_cast<uint32_t>(ulNum + 1), strWord);
            }
            strRule += (strRule.empty() ? "$" : " $") + std::to_string(ulNum + 1);
        }
        vecRuleTexts.push_back(strRule);
    }
    for (const std::string &strRule : vecRuleTexts) {
        CLI_InstallCmd(pT, static_cast<int64_t>(vecWords.size()), strRule.c_str(), bench_pass);
    }
    CLI_FreeCmdTemplet(pT, static_cast<int64_t>(vecWords.size()));
}

}  // namespace

void bench_engine_build()
{
    for (const auto &vecRules : bench_modules()) {
        bench_register(vecRules);
    }
    snprintf(gszSysPrompt, sizeof(gszSysPrompt), "[%s-equipment]", "K5T2-B01-16IPC");
}

void bench_engine_run(const char *pcLine)
{
    // The loop hands every line over in gszLineBuf; completion rewrites it.
    memcpy(gszLineBuf, pcLine, strlen(pcLine) + 1);
    CLI_MainProcess(gszLineBuf, 1);
}
