// The RAM flag commands, which no board registers: typed through the engine
// against the simulated nvram.
#include <gtest/gtest.h>

#include <cstdio>
#include <string>

#include "equ_board.h"
#include "equ_cli_cmd.h"
#include "equ_cmd.h"
#include "sim_helpers.h"

using testing::internal::CaptureStdout;
using testing::internal::GetCapturedStdout;

namespace {

std::string typed(const char *pcLine)
{
    static bool bRegistered = [] {
        static EQU_BOARD_DESC_S stDesc{};
        stDesc.ucDdrNum = 2;
        gpstEquBoardDesc = &stDesc;
        EQU_Cmd_Ram();
        return true;
    }();
    (void)bRegistered;
    char acLine[CLI_LINE_BUF_LEN];
    snprintf(acLine, sizeof(acLine), "%s", pcLine);
    CaptureStdout();
    CLI_MainProcess(acLine, 1);
    return GetCapturedStdout();
}

std::string frame(const std::string &strBody, bool bPass)
{
    return "\r\n@" + strBody + (bPass ? "\r\ntest result:pass" : "\r\ntest result:fail") + "\r\n$$";
}

}  // namespace

class RamTest : public BoardTest {};

TEST_F(RamTest, FlagResultAndCapacity)
{
    EXPECT_EQ(typed("test ram flag set enable"), frame("", true));
    EXPECT_EQ(read("nvram/memtest"), "ys\n");
    EXPECT_EQ(typed("test ram flag get"), frame("\r\nram flag get: enable", true));
    put("nvram/memtest", "yes\n");  // only "ys" and "no" are words of the flag
    EXPECT_EQ(typed("test ram flag get"), frame("\r\ninvalid memtest value yes", false));
    put("nvram/mem_result", "2\n");
    EXPECT_EQ(typed("test ram unit"), frame("\r\nCPU0-DDR1 test .............. ok"
                                            "\r\nCPU0-DDR2 test .............. error",
                                            false));
    put("nvram/mem_size", "80000000\n");
    EXPECT_EQ(typed("test ram capacity"), frame("\r\nram capacity: 2048MB", true));
    EXPECT_EQ(typed("test ram flag set disable"), frame("", true));
    EXPECT_EQ(read("nvram/memtest"), "no\n");
}
