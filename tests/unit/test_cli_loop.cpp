// The line editor and the history ring, reached directly: keys are fed through
// a pipe on fd 0 and the echo is captured from stdout. Touches no board node.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <unistd.h>
#include <vector>

#include "equ_cli_cmd.h"

using testing::internal::CaptureStdout;
using testing::internal::GetCapturedStdout;

namespace {

void resetHistory()
{
    for (char *&pcSlot : gapcHistoryCmd) {
        free(pcSlot);
        pcSlot = nullptr;
    }
    gulHistorySavePosition = 0;
    gulHistoryShowPosition = 0;
}

struct EditResult {
    int64_t lRet;
    std::string strLine;
    std::string strEcho;
};

// Runs CLI_Getline on gszLineBuf (which keeps pcStart) with strKeys typed.
EditResult edit(const std::string &strKeys, const char *pcStart = "")
{
    int aiPipe[2];
    EXPECT_EQ(0, pipe(aiPipe));
    EXPECT_EQ(static_cast<ssize_t>(strKeys.size()), write(aiPipe[1], strKeys.data(), strKeys.size()));
    close(aiPipe[1]);
    int iSaved = dup(0);
    dup2(aiPipe[0], 0);
    close(aiPipe[0]);
    clearerr(stdin);
    memset(gszLineBuf, 0, sizeof(gszLineBuf));
    snprintf(gszLineBuf, sizeof(gszLineBuf), "%s", pcStart);
    CaptureStdout();
    EditResult stRes;
    stRes.lRet = CLI_Getline(gszLineBuf);
    stRes.strEcho = GetCapturedStdout();
    stRes.strLine = gszLineBuf;
    while (getchar() != EOF) {
        // keys left after the line ended must not reach the next case
    }
    dup2(iSaved, 0);
    close(iSaved);
    clearerr(stdin);
    return stRes;
}

class CliLoop : public testing::Test {
protected:
    void SetUp() override
    {
        resetHistory();
        glCursor = 0;
        snprintf(gszSysPrompt, sizeof(gszSysPrompt), "%s", "[P-equipment]");
    }
    void TearDown() override { resetHistory(); }
};

std::vector<std::string> walk(const char *(*pfStep)(void), int iCount)
{
    std::vector<std::string> vec;
    for (int i = 0; i < iCount; i++) {
        const char *pc = pfStep();
        vec.push_back(pc ? pc : "<null>");
    }
    return vec;
}

}  // namespace

TEST_F(CliLoop, HistoryKeepsOnlyNewNonEmptyFinishedLines)
{
    for (const char *pc : {"", "a", "a", "b?", "c\t", "b"}) {
        CLI_SaveHistroyCmd(pc);
    }
    EXPECT_EQ(2u, gulHistorySavePosition);
    EXPECT_EQ(gulHistorySavePosition, gulHistoryShowPosition);
    // Walking past the oldest answers null and stays there; down then comes
    // forward again, and past the newest answers null.
    EXPECT_EQ((std::vector<std::string>{"b", "a", "<null>", "<null>"}), walk(CLI_GetHistroyCmdPre, 4));
    EXPECT_EQ((std::vector<std::string>{"a", "b", "<null>"}), walk(CLI_GetHistroyCmdNext, 3));
    // The end of the walk parks on the newest slot, so up skips it.
    EXPECT_STREQ("a", CLI_GetHistroyCmdPre());
    // Saving any line (even a refused one) rewinds the walk.
    CLI_SaveHistroyCmd("");
    EXPECT_STREQ("b", CLI_GetHistroyCmdPre());
}

TEST_F(CliLoop, TwelfthLineReplacesTheOldestAndTenAreReachable)
{
    for (int i = 0; i < 12; i++) {
        CLI_SaveHistroyCmd(("c" + std::to_string(i)).c_str());
    }
    EXPECT_EQ(1u, gulHistorySavePosition);
    EXPECT_STREQ("c11", gapcHistoryCmd[0]);
    EXPECT_STREQ("c1", gapcHistoryCmd[1]);
    std::vector<std::string> vecUp = walk(CLI_GetHistroyCmdPre, 11);
    EXPECT_EQ((std::vector<std::string>{"c11", "c10", "c9", "c8", "c7", "c6", "c5", "c4", "c3",
                                        "c2", "<null>"}),
              vecUp);
    CLI_SaveHistroyCmd("c11");
    EXPECT_EQ(1u, gulHistorySavePosition) << "a repeat of the newest line is not stored";
}

TEST_F(CliLoop, InsertAndBackspaceInsideTheLine)
{
    // Two left, insert: the moved tail is shown again and the cursor put back.
    EditResult stRes = edit("abd\033[D\033[Dc\033[C\r");
    EXPECT_EQ(0, stRes.lRet);
    EXPECT_EQ("acbd", stRes.strLine);
    EXPECT_EQ("abd\033[1D\033[1Dcbd\033[2Db", stRes.strEcho);
    EXPECT_EQ(0, glCursor);

    stRes = edit("abcd\033[D\033[D\x7f\b\b\r");
    EXPECT_EQ("cd", stRes.strLine);
    EXPECT_EQ("abcd\033[1D\033[1D\bcd \033[3D\bcd \033[3D", stRes.strEcho);

    // At the end: backspace, blank, backspace; nothing on an empty line.
    stRes = edit("ab\x7f\x7f\x7f\r");
    EXPECT_EQ("", stRes.strLine);
    EXPECT_EQ("ab\b \b\b \b", stRes.strEcho);
}

TEST_F(CliLoop, CursorStopsAtBothEndsSilently)
{
    EditResult stRes = edit("ab\033[C\033[D\033[D\033[D\033[C\033[CX\r");
    EXPECT_EQ("abX", stRes.strLine);
    EXPECT_EQ("ab\033[1D\033[1Dab" "X", stRes.strEcho);
}

TEST_F(CliLoop, KeyEndingInTildeDisablesArrowsForTheLine)
{
    EditResult stRes = edit("ab\033[2~\033[DX\r");
    EXPECT_EQ("abX", stRes.strLine);
    EXPECT_EQ("abX", stRes.strEcho);
    // A two-digit key drops its "~", and every later escape key of the line
    // drops one more character; the next line starts afresh.
    stRes = edit("ab\033[15~Y\033[DZ\r");
    EXPECT_EQ("abY", stRes.strLine);
    stRes = edit("ab\033[DZ\r");
    EXPECT_EQ("aZb", stRes.strLine);
}

TEST_F(CliLoop, HelpAndTabEndTheLineAndTheLineContinues)
{
    EditResult stRes = edit("te?zz\r");
    EXPECT_EQ("te?", stRes.strLine);
    EXPECT_EQ("te?", stRes.strEcho);

    stRes = edit("te\t", "");
    EXPECT_EQ("te\t", stRes.strLine);
    EXPECT_EQ("te", stRes.strEcho) << "a tab is not echoed";

    // A tab with the cursor inside the line is ignored.
    stRes = edit("te\033[D\tX\r");
    EXPECT_EQ("tXe", stRes.strLine);

    stRes = edit("st\r", "te");
    EXPECT_EQ("test", stRes.strLine);
    EXPECT_EQ(2u, gulHistorySavePosition) << "te? and te<tab> were not saved";
}

TEST_F(CliLoop, LineHoldsNinetyNineCharacters)
{
    EditResult stRes = edit(std::string(100, 'x') + "?\t\r");
    EXPECT_EQ(std::string(99, 'x'), stRes.strLine);
    EXPECT_EQ(std::string(100, 'x') + "\b \b?\b \b", stRes.strEcho);

    // Inside a full line the refused key's echo is replaced by what was there.
    stRes = edit(std::string(98, 'x') + "y\033[DZ\r");
    EXPECT_EQ(std::string(98, 'x') + "y", stRes.strLine);
    EXPECT_EQ(std::string(98, 'x') + "y\033[1DZ\by\b", stRes.strEcho);
}

TEST_F(CliLoop, UpAndDownRecallIntoTheLine)
{
    CLI_SaveHistroyCmd("test led on");
    CLI_SaveHistroyCmd("ab");
    EditResult stRes = edit("xyz\033[A\033[A!\r");
    EXPECT_EQ("test led on!", stRes.strLine);
    EXPECT_EQ("xyz"
              "\r[P-equipment]   \r[P-equipment]ab"
              "\r[P-equipment]  \r[P-equipment]test led on!",
              stRes.strEcho);
    // The cursor keeps its offset through a recall, bounded by the new line.
    stRes = edit("abcdef\033[D\033[D\033[D\033[D\033[D\033[A\033[AQ\r");
    EXPECT_EQ(0, glCursor);
    EXPECT_EQ("Qab", stRes.strLine);
}

TEST_F(CliLoop, EndOfInputEndsTheLine)
{
    EditResult stRes = edit("abc");
    EXPECT_EQ(-1, stRes.lRet);
    EXPECT_EQ("abc", stRes.strLine);
    EXPECT_EQ(0, glCursor);
}

TEST_F(CliLoop, NoWaitReadDoesNotBlockOnAnEmptyPipe)
{
    int aiPipe[2];
    ASSERT_EQ(0, pipe(aiPipe));
    int iSaved = dup(0);
    dup2(aiPipe[0], 0);
    clearerr(stdin);
    EXPECT_EQ(255, CLI_NoWaitGetChar());
    ASSERT_EQ(1, write(aiPipe[1], "k", 1));
    EXPECT_EQ('k', CLI_NoWaitGetChar());
    close(aiPipe[1]);
    close(aiPipe[0]);
    dup2(iSaved, 0);
    close(iSaved);
    clearerr(stdin);
}
