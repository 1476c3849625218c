// The history ring and the corners of the line editor that the console
// transcripts cannot reach (end of input, the cursor offset kept through a
// recall, the non-blocking read). Keys are fed through a pipe on fd 0 and the
// echo is captured from stdout. Touches no board node.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <unistd.h>
#include <vector>

#include "equ_cli_cmd.h"
#include "stdin_feed.h"

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
    memset(gszLineBuf, 0, sizeof(gszLineBuf));
    snprintf(gszLineBuf, sizeof(gszLineBuf), "%s", pcStart);
    EditResult stRes{};
    stRes.strEcho = withKeysOnStdin(strKeys, [&] { stRes.lRet = CLI_Getline(gszLineBuf); });
    stRes.strLine = gszLineBuf;
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

// Lines ending in help or completion are not kept; the console transcript
// covers the walk itself.
TEST_F(CliLoop, HistoryKeepsOnlyNewNonEmptyFinishedLines)
{
    for (const char *pc : {"", "a", "a", "b?", "c\t", "b"}) {
        CLI_SaveHistroyCmd(pc);
    }
    EXPECT_EQ(2u, gulHistorySavePosition);
    EXPECT_EQ((std::vector<std::string>{"b", "a", "<null>"}), walk(CLI_GetHistroyCmdPre, 3));
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

// A recall keeps the cursor's offset from the end, but never beyond the
// start of the shorter line it brings.
TEST_F(CliLoop, RecallKeepsTheCursorInsideTheLine)
{
    CLI_SaveHistroyCmd("ab");
    CLI_SaveHistroyCmd("test led on");
    EditResult stRes = edit("abcdef\033[D\033[D\033[A!\r");
    EXPECT_EQ("test led !on", stRes.strLine);
    stRes = edit("abcdef\033[D\033[D\033[D\033[D\033[D\033[A\033[A\033[AQ\r");
    EXPECT_EQ("Qab", stRes.strLine);
    EXPECT_EQ(0, glCursor);
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
