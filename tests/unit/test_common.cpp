// Common services that need no board: the numeric parameter check, the bit
// printer, the shell runner's verdicts, numbers read from a command, file
// existence, operator confirmation read from standard input, and the TFTP
// command line (run against a stand-in tftp put first on PATH).
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <fstream>
#include <functional>
#include <sstream>
#include <string>
#include <sys/stat.h>

#include "equ_common.h"
#include "stdin_feed.h"

using testing::internal::CaptureStdout;
using testing::internal::GetCapturedStdout;

namespace {

std::string output(const std::function<void()> &fn)
{
    CaptureStdout();
    fn();
    return GetCapturedStdout();
}

int confirm(const std::string &strKeys, std::string *pstrOut = nullptr)
{
    int iRet = -1;
    std::string strOut = withKeysOnStdin(strKeys, [&] { iRet = EQU_CheckYesInput(); });
    if (pstrOut != nullptr) {
        *pstrOut = strOut;
    }
    return iRet;
}

TEST(EquCommon, RangeCheckReadsDigitsOnly)
{
    int64_t lVal = 0;
    EXPECT_TRUE(EQU_InRange("0255", 1, 255, &lVal) && lVal == 255);  // leading zeros read
    EXPECT_TRUE(EQU_InRange(("00000000000000000000" + std::string("7")).c_str(), 1, 255));
    for (const char *pcBad : {"", "0", "256", "-5", "+5", " 5", "5s", "18446744073709551617"}) {
        EXPECT_FALSE(EQU_InRange(pcBad, 1, 255)) << pcBad;
    }
    EXPECT_TRUE(EQU_InRange("-100", -100, 100, &lVal) && lVal == -100);
    // A lone sign and "-0" read as 0, as the C library reads them.
    EXPECT_TRUE(EQU_InRange("-", -100, 100, &lVal) && lVal == 0);
    EXPECT_TRUE(EQU_InRange("-0", 0, 1, &lVal) && lVal == 0);
    EXPECT_FALSE(EQU_InRange("-1", 0, 1));
    EXPECT_FALSE(EQU_InRange("-101", -100, 100));
}

TEST(EquCommon, PrintBitShowsLowBitsAndWrapsTheShift)
{
    auto bits = [](uint8_t v, uint8_t w) { return output([=] { EQU_Print_Bit(v, w); }); };
    EXPECT_EQ("0101", bits(5, 4));
    EXPECT_EQ("11111111", bits(255, 8));
    EXPECT_EQ("", bits(255, 0) + bits(255, 9) + bits(255, 32));
    EXPECT_EQ("10000001", bits(0x81, 40));  // shift count 39 wraps to 7
}

TEST(EquCommon, ShellVerdictsNumbersAndFiles)
{
    EXPECT_EQ(0u, EQU_System("true"));
    EXPECT_EQ(200u, EQU_System("exit 3"));
    EXPECT_EQ(0u, EQU_System("kill -9 $$"));  // ended by a signal: a pass
    EXPECT_EQ(42u, EQU_CmdRes_Num("printf '42\\n17\\n'"));
    EXPECT_EQ(0u, EQU_CmdRes_Num("echo no digits"));
    EXPECT_EQ(static_cast<uint32_t>(-7), EQU_CmdRes_Num("echo -7"));
    EXPECT_EQ("\r\nfgets error[true]\n",
              output([] { EXPECT_EQ(0xFFFFFFFFu, EQU_CmdRes_Num("true")); }));
    EXPECT_EQ(0u, EQU_IsFileExist("/"));
    EXPECT_EQ(200u, EQU_IsFileExist("/nonexistent/equ"));
    EXPECT_EQ(200u, EQU_IsFileExist(nullptr));
}

// Only a single y or Y confirms; the answer holds 99 characters.
TEST(EquCommon, Confirmation)
{
    std::string strOut, strLong(99, 'a');
    EXPECT_EQ(1, confirm("y\bY\r", &strOut));
    EXPECT_EQ("\r\nAre you sure?(Y/N)y\b \bY", strOut);
    // erasing an empty answer does nothing; line feed and controls are dropped unechoed
    EXPECT_EQ(1, confirm("\x7f\by\n\x01\r", &strOut));
    EXPECT_EQ("\r\nAre you sure?(Y/N)y", strOut);
    for (const char *pcNo : {"YY\r", "yes\r", "\r", "n\ry\r", "y"}) {  // "y": console gone
        EXPECT_EQ(0, confirm(pcNo)) << pcNo;
    }
    EXPECT_EQ(0, confirm(strLong + "b\r", &strOut));
    EXPECT_EQ("\r\nAre you sure?(Y/N)" + strLong + "b\b \b", strOut);
    EXPECT_EQ(1, confirm(strLong + "b" + std::string(99, '\b') + "y\r"));
}

// Fetch and send lines, a failed transfer, no server, and a line too long.
TEST(EquCommon, TftpTransfer)
{
    char acDir[] = "/tmp/equ_tftp_XXXXXX";
    ASSERT_NE(nullptr, mkdtemp(acDir));
    std::string strDir = acDir, strPath = getenv("PATH");
    std::ofstream(strDir + "/tftp")
        << "#!/bin/sh\necho \"$@\" >> " << strDir << "/args\nexit ${TFTP_RC:-0}\n";
    chmod((strDir + "/tftp").c_str(), 0755);
    setenv("PATH", (strDir + ":" + strPath).c_str(), 1);
    strcpy(acEquServerip, "1.2.3");
    EXPECT_EQ("\r\nerror: you have not set the serverip",
              output([] { EXPECT_EQ(200u, EQU_TftpTransferFile("a", "b", 0)); }));
    strcpy(acEquServerip, "1.2.3.4");
    EXPECT_EQ(0u, EQU_TftpTransferFile("/tmp/local", "remote", 0));
    EXPECT_EQ(0u, EQU_TftpTransferFile("/tmp/l2", "r2", 1));
    // "tftp -g 1.2.3.4 -l  -r " takes 23 of the 99 characters: 76 are left for names
    std::string strLocal(40, 'L'), strFits(36, 'R');
    EXPECT_EQ(0u, EQU_TftpTransferFile(strLocal.c_str(), strFits.c_str(), 0));
    EXPECT_EQ(
        "\r\nerror: tftp -g 1.2.3.4 -l " + strLocal + " -r " + strFits + " failed", output([&] {
            EXPECT_EQ(200u, EQU_TftpTransferFile(strLocal.c_str(), (strFits + "R").c_str(), 0));
        }));
    setenv("TFTP_RC", "1", 1);
    EXPECT_EQ("\r\nerror: tftp -p 1.2.3.4 -l a -r b failed",
              output([] { EXPECT_EQ(200u, EQU_TftpTransferFile("a", "b", 1)); }));
    std::ifstream in(strDir + "/args");
    std::stringstream ss;
    ss << in.rdbuf();
    EXPECT_EQ("-g 1.2.3.4 -l /tmp/local -r remote\n-p 1.2.3.4 -l /tmp/l2 -r r2\n-g 1.2.3.4 -l " +
                  strLocal + " -r " + strFits + "\n-p 1.2.3.4 -l a -r b\n",
              ss.str());
    setenv("PATH", strPath.c_str(), 1);
    unsetenv("TFTP_RC");
    memset(acEquServerip, 0, sizeof(acEquServerip));
    EXPECT_EQ(0, system(("rm -rf " + strDir).c_str()));
}

}  // namespace
