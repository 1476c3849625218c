// Golden transcripts of the command engine: lines are fed to CLI_MainProcess
// over trees of dummy rules whose handlers print their parameters, and the
// whole standard output is compared byte for byte with data/cli_*.txt.
// Touches no board node.
//
// Transcript format, one directive per line:
//   # ...            comment            tree NAME     fresh tree (shell, single, empty)
//   lang N           genLanguage and the line's language
//   prompt TEXT      gszSysPrompt
//   > TEXT           a typed line, handed over in gszLineBuf
//   |TEXT            expected output; the pieces of a line's output join with
//                    nothing between them (a piece usually starts at "\r\n")
//   = ret N          CLI_MainProcess's result when not 0
//   = buf TEXT       gszLineBuf afterwards, and gbAutoFixed set
// TEXT escapes \r \n \t \\ and \xHH; a trailing blank is written \x20.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "equ_cli_cmd.h"

using testing::internal::CaptureStdout;
using testing::internal::GetCapturedStdout;

namespace {

// ---- dummy help tables: the "Chinese" column is marked zh- so that the
// column a help list takes is visible ----

const EQU_KEY_HELP_INFO_S kTop[] = {
    {"test", "equipment test", "zh-test"},
    {"set", "Set Test", "zh-set"},
    {"serverip", "server ip address", "zh-serverip"},
    {"ip address", "a.b.c.d", "zh-ip"},
    {"display", "dispaly information", "zh-display"},
    {"download", "Download information", "zh-download"},
};

const EQU_KEY_HELP_INFO_S kTemp[] = {
    {"mainboard", "Mainboard Test", "zh-mainboard"},
    {"temperature", "Temperature Test", "zh-temperature"},
    {"temp_low", "The Low Temperature, -100 ~ 100", "zh-low"},
    {"temp_high", "The high Temperature, -100 ~ 100", "zh-high"},
    {"heat", "Heat Test", "zh-heat"},
    {"heat_slot", "The Slot as heat, 0 ~ 1/all", "zh-slot"},
    {"heat_ctrl", "Heat Ctrl", "zh-ctrl"},
    {"heat_switch", "Switch as Heat Ctrl, on/off", "zh-switch"},
    {"netboard", "Netboard Test", "zh-netboard"},
    {"heat_status", "The Status as heat", "zh-status"},
};

const EQU_KEY_HELP_INFO_S kMisc[] = {
    {"led", "LED Test", "zh-led"},
    {"ledx", "LED Extra Test", "zh-ledx"},
    {"fan", "Fan Test", "zh-fan"},
    {"fan speed", "fan speed : 0 ~ 100", "zh-speed"},
    {"fan name", "fan name text", "zh-name"},
    {"runtime", "Runtime Test", "zh-runtime"},
    {"show", "Show the record", "zh-show"},
    {"led num", "led num : 0 ~ 3", "zh-lednum"},
    {"extra_long_keyword", "no padding after a long keyword", "zh-long"},
    {"silent", "Installed without handler", "zh-silent"},
    {"num", "Integer only", "zh-num"},
    {"word", "String only", "zh-word"},
    {"dyn", "Generated help", "zh-dyn"},
    {"value", "value : any", "zh-value"},
};

// ---- validators and handlers ----

uint64_t checkTemp(const char *pcToken, CLI_CMD_PARA_S *)
{
    int64_t lVal = CLI_StrtoL(pcToken);
    if (lVal < -100 || lVal > 100) {
        printf("\r\ntemperature must be -100 ~ 100");
        return 200;
    }
    return 0;
}

// Rejects with the number of parameters recorded before it.
uint64_t checkSwitch(const char *pcToken, CLI_CMD_PARA_S *pstPara)
{
    if (strcmp(pcToken, "on") != 0 && strcmp(pcToken, "off") != 0) {
        uint64_t ulNum = 0;
        CLI_GetAllParaNum(pstPara, &ulNum);
        printf("\r\nswitch must be on/off (%llu recorded)", static_cast<unsigned long long>(ulNum));
        return 1;
    }
    return 0;
}

void genChoices(const char *, CLI_CMD_PARA_S *, CLI_HELP_VECTOR_S *pstHead)
{
    static const char *const kRows[2][3] = {{"alpha", "first choice", "zh-first"},
                                            {"beta", "second choice", "zh-second"}};
    CLI_HELP_VECTOR_S **ppstTail = &pstHead->pstNext;
    for (const auto &row : kRows) {
        auto *pstEntry = static_cast<CLI_HELP_VECTOR_S *>(calloc(1, sizeof(CLI_HELP_VECTOR_S)));
        pstEntry->pcKey = row[0];
        pstEntry->pcHelpEn = row[1];
        pstEntry->pcHelpCh = row[2];
        *ppstTail = pstEntry;
        ppstTail = &pstEntry->pstNext;
    }
}

// Prints every parameter through the accessors a module uses.
uint64_t dumpParams(const char *pcName, CLI_CMD_PARA_S *pstPara, uint64_t ulRet)
{
    uint64_t ulNum = 0;
    CLI_GetAllParaNum(pstPara, &ulNum);
    printf("\r\n%s n=%llu", pcName, static_cast<unsigned long long>(ulNum));
    for (uint64_t i = 0; i < ulNum; i++) {
        auto lSeq = static_cast<int64_t>(i);
        uint64_t ulVal = 0;
        uint64_t ulOid = 0;
        char szText[CLI_MAX_TOKEN_LEN] = "";
        printf(" [%llu", static_cast<unsigned long long>(i));
        if (CLI_GetUlongValuePara(pstPara, lSeq, &ulVal) == 0) {
            printf(" int=%llu", static_cast<unsigned long long>(ulVal));
        }
        if (CLI_GetOctStringPara(pstPara, lSeq, szText) == 0) {
            printf(" str=%s", szText);
        }
        CLI_GetParaOID(pstPara, lSeq, &ulOid);
        printf(" oid=%llu]", static_cast<unsigned long long>(ulOid));
    }
    return ulRet;
}

// A handler that names itself in the output, so the transcript shows which
// rule ran.
template <size_t N>
struct Name {
    char sz[N];
    constexpr Name(const char (&ac)[N]) { std::copy_n(ac, N, sz); }
};
template <Name N, uint64_t Ret = 0>
uint64_t dummy(CLI_CMD_PARA_S *p)
{
    return dumpParams(N.sz, p, Ret);
}

// ---- trees; each registration mimics a module: template, rules, free ----

void regTemperature()
{
    CLI_CMD_TEMPLET_S *pT = CLI_NewCmdTemplet();
    CLI_AddKey(pT, 1, "test", kTop, 0);
    CLI_AddKey(pT, 2, "mainboard", kTemp, 0);
    CLI_AddKey(pT, 3, "temperature", kTemp, 1);
    CLI_AddPara(pT, 4, CLI_INTEGER, checkTemp, kTemp, 2);
    CLI_AddPara(pT, 5, CLI_INTEGER, checkTemp, kTemp, 3);
    CLI_AddKey(pT, 6, "netboard", kTemp, 8);
    CLI_AddKey(pT, 7, "heat", kTemp, 4);
    CLI_AddPara(pT, 8, CLI_STRING, nullptr, kTemp, 5);
    CLI_AddKey(pT, 9, "ctrl", kTemp, 6);
    CLI_AddPara(pT, 10, CLI_STRING, checkSwitch, kTemp, 7);
    CLI_AddKey(pT, 11, "status", kTemp, 9);
    CLI_InstallCmd(pT, 11, "$1 $2 $3 $4 $5", dummy<"tempRead">);
    CLI_InstallCmd(pT, 11, "$1 $6 $3 $4 $5", dummy<"tempReadNet">);
    CLI_InstallCmd(pT, 11, "$1 $7 $8 $9 $10", dummy<"heatCtrl">);
    CLI_InstallCmd(pT, 11, "$1 $7 $8 $11", dummy<"heatStatus">);
    CLI_FreeCmdTemplet(pT, 11);
}

void regMisc()
{
    CLI_CMD_TEMPLET_S *pT = CLI_NewCmdTemplet();
    CLI_AddKey(pT, 1, "test", kTop, 0);
    CLI_AddKey(pT, 2, "led", kMisc, 0);
    CLI_AddKey(pT, 3, "ledx", kMisc, 1);
    CLI_AddPara(pT, 4, CLI_INTEGER, nullptr, kMisc, 7);
    CLI_AddKey(pT, 5, "fan", kMisc, 2);
    CLI_AddPara(pT, 6, CLI_INTEGER, nullptr, kMisc, 3);
    CLI_AddPara(pT, 7, CLI_STRING, nullptr, kMisc, 4);
    CLI_AddKey(pT, 8, "runtime", kMisc, 5);
    CLI_AddKey(pT, 9, "show", kMisc, 6);
    CLI_AddKey(pT, 10, "extra_long_keyword", kMisc, 8);
    CLI_AddKey(pT, 11, "display", kTop, 4);
    CLI_AddKey(pT, 12, "download", kTop, 5);
    CLI_InstallCmd(pT, 12, "$1 $2 $4", dummy<"ledOn">);
    CLI_InstallCmd(pT, 12, "$1 $3", dummy<"ledxFirst">);
    CLI_InstallCmd(pT, 12, "$1 $3", dummy<"ledxSecond">);
    CLI_InstallCmd(pT, 12, "$1 $5", dummy<"fanAll">);
    CLI_InstallCmd(pT, 12, "$1 $5 $6", dummy<"fanSpeed">);
    CLI_InstallCmd(pT, 12, "$1 $5 $7", dummy<"fanName">);
    CLI_InstallCmd(pT, 12, "$1 $8", dummy<"runtimeFail", 200>);
    CLI_InstallCmd(pT, 12, "$1 $8 $9", dummy<"runtimeShow">);
    CLI_InstallCmd(pT, 12, "$1 $10", dummy<"longKeyword">);
    CLI_InstallCmd(pT, 12, "$11", dummy<"display">);
    CLI_InstallCmd(pT, 12, "$12", dummy<"download">);
    CLI_FreeCmdTemplet(pT, 12);
}

// A second "test runtime" with its own handler, and a new top-level word.
// "test silent" ends on a node that has neither handler nor sons.
void regSet()
{
    CLI_CMD_TEMPLET_S *pT = CLI_NewCmdTemplet();
    CLI_AddKey(pT, 1, "set", kTop, 1);
    CLI_AddKey(pT, 2, "serverip", kTop, 2);
    CLI_AddPara(pT, 3, CLI_STRING, nullptr, kTop, 3);
    CLI_AddKey(pT, 4, "test", kTop, 0);
    CLI_AddKey(pT, 5, "runtime", kMisc, 5);
    CLI_AddKey(pT, 6, "silent", kMisc, 9);
    CLI_AddKey(pT, 7, "mainboard", kTemp, 0);
    CLI_AddKey(pT, 8, "temperature", kTemp, 1);
    CLI_AddPara(pT, 9, CLI_INTEGER, nullptr, kMisc, 13);
    CLI_InstallCmd(pT, 9, "$1 $2 $3", dummy<"setIp">);
    CLI_InstallCmd(pT, 9, "$4 $5", dummy<"runtimeOther">);
    // Merges into the temperature path: its validator stays in force.
    CLI_InstallCmd(pT, 9, "$4 $7 $8 $9 $9", dummy<"runtimeOther">);
    const int64_t alRule[] = {4, 6};
    CLI_CMD_NODE_S *pstLink = CLI_GetCmdLinkFromRule(pT, 9, alRule, 2, dummy<"runtimeOther">);
    pstLink->pstSon->pfHandler = nullptr;
    CLI_InstallCmdTemplet(pstLink);
    CLI_FreeCmdTemplet(pT, 9);
}

// Levels of a single node: a lone "<Integer>", a lone "<String>", and a lone
// slot with a help generator.
void regSingle()
{
    CLI_CMD_TEMPLET_S *pT = CLI_NewCmdTemplet();
    CLI_AddKey(pT, 1, "test", kTop, 0);
    CLI_AddKey(pT, 2, "num", kMisc, 10);
    CLI_AddPara(pT, 3, CLI_INTEGER, nullptr, kMisc, 13);
    CLI_AddKey(pT, 4, "word", kMisc, 11);
    CLI_AddPara(pT, 5, CLI_STRING, nullptr, kMisc, 13);
    CLI_AddKey(pT, 6, "dyn", kMisc, 12);
    CLI_NewCmdElement(pT, 7, CLI_STRING, 0, 0, CLI_VALUE_NONE, nullptr, genChoices, kMisc, 13);
    CLI_InstallCmd(pT, 7, "$1 $2 $3", dummy<"numOnly">);
    CLI_InstallCmd(pT, 7, "$1 $4 $5", dummy<"wordOnly">);
    CLI_InstallCmd(pT, 7, "$1 $6 $7", dummy<"dynOnly">);
    CLI_FreeCmdTemplet(pT, 7);
}

void resetEngine()
{
    CLI_DestroyCmdTemplet(gpstCmdTempletRoot);
    gpstCmdTempletRoot = nullptr;
    snprintf(gszSysPrompt, sizeof(gszSysPrompt), "%s", "Corvanet");
    memset(gszLineBuf, 0, sizeof(gszLineBuf));
    gbAutoFixed = 0;
    genLanguage = 1;
}

bool buildTree(const std::string &strName)
{
    resetEngine();
    if (strName == "shell") {
        regTemperature();
        regMisc();
        regSet();
    } else if (strName == "single") {
        regSingle();
    } else if (strName != "empty") {
        return false;
    }
    return true;
}

// ---- transcript text ----

std::string unescape(const std::string &strIn)
{
    std::string strOut;
    for (size_t i = 0; i < strIn.size(); i++) {
        if (strIn[i] != '\\' || i + 1 == strIn.size()) {
            strOut += strIn[i];
            continue;
        }
        char c = strIn[++i];
        if (c == 'r') {
            strOut += '\r';
        } else if (c == 'n') {
            strOut += '\n';
        } else if (c == 't') {
            strOut += '\t';
        } else if (c == 'x' && i + 2 < strIn.size()) {
            strOut += static_cast<char>(std::stoi(strIn.substr(i + 1, 2), nullptr, 16));
            i += 2;
        } else {
            strOut += c;
        }
    }
    return strOut;
}

struct LineCase {
    int iLine = 0;
    std::string strTyped;
    std::string strExpect;
    int64_t lRet = 0;
    bool bCheckBuf = false;
    std::string strBuf;
};

class Transcript {
  public:
    explicit Transcript(std::string strFile) : m_strFile(std::move(strFile)) {}

    void run()
    {
        std::ifstream in(std::string(TEST_DATA_DIR) + "/" + m_strFile);
        ASSERT_TRUE(in.good()) << m_strFile;
        std::string strLine;
        int iLine = 0;
        while (std::getline(in, strLine)) {
            directive(++iLine, strLine);
        }
        flush();
        EXPECT_GT(m_iCases, 0) << m_strFile << " holds no case";
    }

  private:
    void directive(int iLine, const std::string &strLine)
    {
        if (strLine.empty() || strLine[0] == '#') {
            return;
        }
        if (strLine[0] == '|') {
            m_stCase.strExpect += unescape(strLine.substr(1));
            return;
        }
        if (strLine.rfind("= ret ", 0) == 0) {
            m_stCase.lRet = std::stoll(strLine.substr(6));
            return;
        }
        if (strLine.rfind("= buf ", 0) == 0) {
            m_stCase.bCheckBuf = true;
            m_stCase.strBuf = unescape(strLine.substr(6));
            return;
        }
        flush();
        if (strLine[0] == '>') {
            m_bPending = true;
            m_stCase = LineCase();
            m_stCase.iLine = iLine;
            m_stCase.strTyped = strLine.size() > 2 ? unescape(strLine.substr(2)) : "";
        } else if (strLine.rfind("tree ", 0) == 0) {
            EXPECT_TRUE(buildTree(strLine.substr(5))) << m_strFile << ":" << iLine;
        } else if (strLine.rfind("lang ", 0) == 0) {
            m_ulLanguage = std::stoull(strLine.substr(5));
            genLanguage = static_cast<int32_t>(m_ulLanguage);
        } else if (strLine.rfind("prompt ", 0) == 0) {
            snprintf(gszSysPrompt, sizeof(gszSysPrompt), "%s", unescape(strLine.substr(7)).c_str());
        } else {
            ADD_FAILURE() << m_strFile << ":" << iLine << ": unknown directive " << strLine;
        }
    }

    // Runs the pending line the way the interactive loop does.
    void flush()
    {
        if (!m_bPending) {
            return;
        }
        m_bPending = false;
        m_iCases++;
        const LineCase &c = m_stCase;
        memset(gszLineBuf, 0, sizeof(gszLineBuf));
        snprintf(gszLineBuf, sizeof(gszLineBuf), "%s", c.strTyped.c_str());
        gbAutoFixed = 0;
        CaptureStdout();
        int64_t lRet = CLI_MainProcess(gszLineBuf, m_ulLanguage);
        std::string strOut = GetCapturedStdout();
        std::string strWhere = m_strFile + ":" + std::to_string(c.iLine) + " > " + c.strTyped;
        EXPECT_EQ(c.strExpect, strOut) << strWhere;
        EXPECT_EQ(c.lRet, lRet) << strWhere;
        if (c.bCheckBuf) {
            EXPECT_EQ(c.strBuf, gszLineBuf) << strWhere;
            EXPECT_EQ(1, gbAutoFixed) << strWhere;
        } else {
            EXPECT_EQ(0, gbAutoFixed) << strWhere << ": line rewritten to " << gszLineBuf;
        }
    }

    std::string m_strFile;
    uint64_t m_ulLanguage = 1;
    bool m_bPending = false;
    LineCase m_stCase;
    int m_iCases = 0;
};

class CliTranscript : public testing::Test {
  protected:
    void SetUp() override { resetEngine(); }
    void TearDown() override { resetEngine(); }
};

// Every data/cli_*.txt, so a new transcript needs no code.
TEST_F(CliTranscript, AllTranscripts)
{
    int iFiles = 0;
    for (const auto &entry : std::filesystem::directory_iterator(TEST_DATA_DIR)) {
        std::string strName = entry.path().filename().string();
        if (strName.rfind("cli_", 0) == 0 && entry.path().extension() == ".txt") {
            SCOPED_TRACE(strName);
            Transcript(strName).run();
            iFiles++;
        }
    }
    EXPECT_GT(iFiles, 0);
}

}  // namespace
