// The command engine reached directly where transcripts cannot: the contract
// assertions (death tests), rule parsing, refused registrations, nodes
// outliving their template, the tokeniser's limits, the parameter accessors
// and the string functions.
// Touches no board node.
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <string>

#include "equ_cli_cmd.h"

namespace {

const EQU_KEY_HELP_INFO_S kRows[] = {
    {"alpha", "Alpha", "zh-alpha"},
    {"beta", "Beta", "zh-beta"},
    {"gamma", "Gamma", "zh-gamma"},
};

uint64_t handlerA(CLI_CMD_PARA_S *)
{
    return 0;
}

// glibc's assertion line for an engine check, as a regular expression.
std::string assertion(const char *pcFunc, const std::string &strExpr)
{
    std::string strRe = std::string("src/equ_cli_cmd.c:[0-9]+: ") + pcFunc + ": Assertion `";
    for (char c : strExpr) {
        if (strchr("\\^$.|?*+()[]{}", c) != nullptr) {
            strRe += '\\';
        }
        strRe += c;
    }
    return strRe + "' failed";
}

class CliEngine : public testing::Test {
  protected:
    void SetUp() override
    {
        GTEST_FLAG_SET(death_test_style, "threadsafe");
        reset();
        m_pT = CLI_NewCmdTemplet();
        CLI_AddKey(m_pT, 1, "alpha", kRows, 0);
        CLI_AddKey(m_pT, 2, "beta", kRows, 1);
        CLI_AddPara(m_pT, 3, CLI_INTEGER, nullptr, kRows, 2);
        CLI_AddPara(m_pT, 4, CLI_STRING, nullptr, kRows, 2);
    }
    void TearDown() override
    {
        CLI_FreeCmdTemplet(m_pT, CLI_TEMPLET_SIZE);
        reset();
    }
    static void reset()
    {
        CLI_DestroyCmdTemplet(gpstCmdTempletRoot);
        gpstCmdTempletRoot = nullptr;
    }
    CLI_CMD_TEMPLET_S *m_pT = nullptr;
};

// ---- rules ----

TEST_F(CliEngine, RuleTexts)
{
    const struct {
        const char *pcRule;
        int64_t lRet, lCount, lSecond;
    } kCases[] = {
        {"$1 $11 $2", 0, 3, 11}, {"$3 $4 ", 0, 2, 4},  {"$5\t$6\n$7", 0, 3, 6}, {"", 0, 0, 0},
        {"$0", 0, 1, 0},         {"$1 $ 2", -1, 0, 0}, {"$", -1, 0, 0},
    };
    for (const auto &c : kCases) {
        int64_t alVec[CLI_TEMPLET_SIZE] = {};
        int64_t lCount = 0;
        EXPECT_EQ(c.lRet, CLI_CmdRuleCheck(c.pcRule, alVec, &lCount)) << c.pcRule;
        EXPECT_EQ(c.lCount, lCount) << c.pcRule;
        EXPECT_EQ(c.lSecond, alVec[1]) << c.pcRule;
    }
    // One number more than a template holds is refused, not written past.
    int64_t alVec[CLI_TEMPLET_SIZE + 1] = {};
    int64_t lCount = 0;
    std::string strRule = "$1";
    for (int i = 1; i < CLI_TEMPLET_SIZE; i++) {
        strRule += " $2";
    }
    EXPECT_EQ(0, CLI_CmdRuleCheck(strRule.c_str(), alVec, &lCount));
    EXPECT_EQ(CLI_TEMPLET_SIZE, lCount);
    EXPECT_EQ(-1, CLI_CmdRuleCheck((strRule + " $3").c_str(), alVec, &lCount));
    EXPECT_EQ(0, alVec[CLI_TEMPLET_SIZE]);
}

TEST_F(CliEngine, MalformedRulesStop)
{
    int64_t alVec[CLI_TEMPLET_SIZE] = {};
    int64_t lCount = 0;
    EXPECT_DEATH(CLI_CmdRuleCheck("$1  $2", alVec, &lCount),
                 assertion("CLI_CmdRuleCheck", "*pszCur == '$'"));
    EXPECT_DEATH(CLI_CmdRuleCheck("$1,$2", alVec, &lCount),
                 assertion("CLI_CmdRuleCheck", "*pszCur == ' '"));
    EXPECT_DEATH(CLI_InstallCmd(m_pT, 3, "$1 $4", handlerA),
                 assertion("CLI_GetCmdLinkFromRule", "plCmdVec[i] <= lTotalElementNum"));
}

// Unusable rules leave the command out silently; the tree stays as it was.
TEST_F(CliEngine, UnusableRulesAreRefused)
{
    testing::internal::CaptureStdout();
    EXPECT_EQ(-1, CLI_InstallCmd(m_pT, 4, "", handlerA));
    EXPECT_EQ(-1, CLI_InstallCmd(m_pT, 4, "$1 $", handlerA));
    EXPECT_EQ(-1, CLI_InstallCmd(m_pT, 4, "$0 $1", handlerA));
    EXPECT_EQ(-1, CLI_InstallCmd(m_pT, 9, "$1 $9", handlerA));    // empty slot
    EXPECT_EQ(-1, CLI_InstallCmd(m_pT, 40, "$1 $31", handlerA));  // beyond a template
    EXPECT_EQ("", testing::internal::GetCapturedStdout());
    EXPECT_EQ(nullptr, gpstCmdTempletRoot);
    EXPECT_EQ(-1, CLI_NewCmdElement(m_pT, 0, "x", CLI_PARA_NONE, 0, 0, nullptr, nullptr, kRows, 0));
    EXPECT_EQ(-1,
              CLI_NewCmdElement(m_pT, 31, "x", CLI_PARA_NONE, 0, 0, nullptr, nullptr, kRows, 0));
}

// ---- the tree ----

// Nodes are copies: the template can go (and be reused) without touching them.
TEST_F(CliEngine, TreeOutlivesItsTemplate)
{
    CLI_CMD_TEMPLET_S *pT = CLI_NewCmdTemplet();
    std::string strLong(200, 'k');
    CLI_AddKey(pT, 1, strLong.c_str(), kRows, 0);
    ASSERT_EQ(0, CLI_InstallCmd(pT, 1, "$1", handlerA));
    CLI_FreeCmdTemplet(pT, 1);
    ASSERT_NE(nullptr, gpstCmdTempletRoot);
    EXPECT_EQ(std::string(CLI_KEYWORD_LEN - 1, 'k'), gpstCmdTempletRoot->szKey);
    EXPECT_EQ(handlerA, gpstCmdTempletRoot->pfHandler);
}

// ---- tokens ----

TEST_F(CliEngine, Tokenising)
{
    char aszArgv[CLI_MAX_TOKEN_NUM][CLI_MAX_TOKEN_LEN];
    int64_t lArgc = -1;
    CLI_GetCmdArg("  TeST Mainboard\tX  -5  ", aszArgv, &lArgc);
    ASSERT_EQ(3, lArgc);
    EXPECT_STREQ("test", aszArgv[0]);
    EXPECT_STREQ("Mainboard\tX", aszArgv[1]);
    EXPECT_STREQ("-5", aszArgv[2]);

    CLI_GetCmdArg("   ", aszArgv, &lArgc);
    EXPECT_EQ(0, lArgc);

    std::string strLine = std::string(300, 'W') + " b";
    CLI_GetCmdArg(strLine.c_str(), aszArgv, &lArgc);
    ASSERT_EQ(2, lArgc);
    EXPECT_EQ(std::string(CLI_MAX_TOKEN_LEN - 1, 'w'), aszArgv[0]);
    EXPECT_STREQ("b", aszArgv[1]);

    strLine.clear();
    for (int i = 0; i < CLI_MAX_TOKEN_NUM + 5; i++) {
        strLine += std::to_string(i) + " ";
    }
    CLI_GetCmdArg(strLine.c_str(), aszArgv, &lArgc);
    ASSERT_EQ(CLI_MAX_TOKEN_NUM, lArgc);
    EXPECT_STREQ("29", aszArgv[CLI_MAX_TOKEN_NUM - 1]);
}

// ---- parameter record ----

class CliParams : public CliEngine {
  protected:
    void SetUp() override
    {
        CliEngine::SetUp();
        CLI_NewCmdElement(m_pT, 5, CLI_INTEGER, 7, 1, 4242, nullptr, nullptr, kRows, 2);
        m_stPara.ulParaLen = 3;
        record(0, "-3", m_pT[2]);
        record(1, "name", m_pT[3]);
        record(2, "9", m_pT[4]);
    }
    void record(int i, const char *pcText, CLI_CMD_NODE_S *pstNode)
    {
        snprintf(m_stPara.astPara[i].szPara, CLI_MAX_TOKEN_LEN, "%s", pcText);
        m_stPara.astPara[i].pstNode = pstNode;
    }
    CLI_CMD_PARA_S m_stPara = {};
};

// A wrong-typed read leaves the destination alone; a fixed value wins over
// the typed text.
TEST_F(CliParams, AccessorsByType)
{
    uint64_t ulVal = 77;
    char szText[CLI_MAX_TOKEN_LEN] = "untouched";
    EXPECT_EQ(-1, CLI_GetOctStringPara(&m_stPara, 0, szText));
    EXPECT_STREQ("untouched", szText);
    EXPECT_EQ(-1, CLI_GetUlongValuePara(&m_stPara, 1, &ulVal));
    EXPECT_EQ(77u, ulVal);
    EXPECT_EQ(0, CLI_GetUlongValuePara(&m_stPara, 2, &ulVal));
    EXPECT_EQ(4242u, ulVal);
    EXPECT_EQ(0, CLI_GetParaOID(&m_stPara, 2, &ulVal));
    EXPECT_EQ(7u, ulVal);
}

TEST_F(CliParams, ReadingPastTheRecordStops)
{
    uint64_t ulVal = 0;
    char szText[CLI_MAX_TOKEN_LEN];
    const std::string strSeq = "pstCmdRecordInfo->ulParaLen > lCmdParaSeq";
    EXPECT_DEATH(CLI_GetUlongValuePara(&m_stPara, 3, &ulVal),
                 assertion("CLI_GetUlongValuePara", strSeq));
    EXPECT_DEATH(CLI_GetUlongValuePara(&m_stPara, -1, &ulVal),
                 assertion("CLI_GetUlongValuePara", strSeq));
    EXPECT_DEATH(CLI_GetOctStringPara(&m_stPara, 3, szText),
                 assertion("CLI_GetOctStringPara", strSeq));
    EXPECT_DEATH(CLI_GetParaOID(&m_stPara, 5, &ulVal), assertion("CLI_GetParaOID", strSeq));
}

// ---- string functions ----

TEST(CliStrings, Conversions)
{
    EXPECT_EQ(0u, CLI_StrtoUL("-5"));
    EXPECT_EQ(42u, CLI_StrtoUL("42abc"));
    EXPECT_EQ(18446744073709551615u, CLI_StrtoUL("18446744073709551615"));
    EXPECT_EQ(0u, CLI_StrtoUL("18446744073709551616"));  // wraps
    EXPECT_EQ(-17, CLI_StrtoL("  -17x"));
    EXPECT_EQ(2147483647, CLI_StrtoL("99999999999"));
    EXPECT_EQ(-2147483648LL, CLI_StrtoL("-99999999999"));

    const char *pcCur = "1fZ";
    EXPECT_EQ(31u, CLI_Skip_AtoHex(&pcCur));
    EXPECT_EQ('Z', *pcCur);
    pcCur = "aA09g";
    EXPECT_EQ(0xAA09u, CLI_Skip_AtoHex(&pcCur));
    EXPECT_EQ('g', *pcCur);
    pcCur = "120 $3";
    EXPECT_EQ(120u, CLI_Skip_AtoI(&pcCur));
    EXPECT_EQ(' ', *pcCur);
    EXPECT_EQ(0u, CLI_Skip_AtoI(&pcCur));
    EXPECT_EQ(' ', *pcCur);
}

}  // namespace
