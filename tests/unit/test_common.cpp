// Common services that need no board: the bit printer, the shell runner's
// verdicts, numbers read from a command, file existence, operator
// confirmation read from a pipe on standard input, the TFTP command line
// (run against a stand-in tftp on PATH), the board-position keyword, and the
// key test's time validator reached through the command engine.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

#include "equ_board.h"
#include "equ_cli_cmd.h"
#include "equ_cmd.h"
#include "equ_common.h"

using testing::internal::CaptureStdout;
using testing::internal::GetCapturedStdout;

namespace {

std::string printBits(uint8_t ucVal, uint8_t ucWidth)
{
    CaptureStdout();
    EQU_Print_Bit(ucVal, ucWidth);
    return GetCapturedStdout();
}

// Feeds pcInput to EQU_CheckYesInput through a pipe on fd 0.
int confirm(const std::string &strInput, std::string *pstrOut)
{
    int aiPipe[2];
    EXPECT_EQ(0, pipe(aiPipe));
    EXPECT_EQ(static_cast<ssize_t>(strInput.size()),
              write(aiPipe[1], strInput.data(), strInput.size()));
    close(aiPipe[1]);
    int iSaved = dup(0);
    dup2(aiPipe[0], 0);
    close(aiPipe[0]);
    clearerr(stdin);
    CaptureStdout();
    int iRet = EQU_CheckYesInput();
    *pstrOut = GetCapturedStdout();
    while (getchar() != EOF) {
        // drop what the prompt left unread, so it cannot leak into the next case
    }
    dup2(iSaved, 0);
    close(iSaved);
    clearerr(stdin);
    return iRet;
}

std::string slurp(const std::string &strPath)
{
    std::ifstream in(strPath);
    std::stringstream ss;
    ss << in.rdbuf();
    return ss.str();
}

}  // namespace

TEST(PrintBit, PrintsLowBitsMostSignificantFirst)
{
    EXPECT_EQ("0101", printBits(5, 4));
    EXPECT_EQ("11111111", printBits(255, 8));
    EXPECT_EQ("1", printBits(0x81, 1));
    EXPECT_EQ("000", printBits(0xF8, 3));
}

TEST(PrintBit, WidthsOutsideTheByteFollowTheWrappedShift)
{
    EXPECT_EQ("", printBits(255, 0));
    EXPECT_EQ("", printBits(255, 9));
    EXPECT_EQ("", printBits(255, 32));
    EXPECT_EQ("1", printBits(255, 33));       // shift count 32 wraps to 0
    EXPECT_EQ("10000001", printBits(0x81, 40));
}

TEST(System, JudgesTheWaitStatusInOrder)
{
    EXPECT_EQ(0u, EQU_System("true"));
    EXPECT_EQ(200u, EQU_System("exit 3"));
    EXPECT_EQ(200u, EQU_System("false"));
    // ended by a signal: a pass, whatever the signal
    EXPECT_EQ(0u, EQU_System("kill -9 $$"));
    EXPECT_EQ(0u, EQU_System("kill -TERM $$"));
}

TEST(CmdResNum, ReadsTheFirstLineLikeAtoi)
{
    EXPECT_EQ(42u, EQU_CmdRes_Num("printf '42\\n17\\n'"));
    EXPECT_EQ(123u, EQU_CmdRes_Num("echo '  123abc'"));
    EXPECT_EQ(0u, EQU_CmdRes_Num("echo no digits"));
    EXPECT_EQ(static_cast<uint32_t>(-7), EQU_CmdRes_Num("echo -7"));
}

TEST(CmdResNum, NoOutputGivesAllOnes)
{
    CaptureStdout();
    EXPECT_EQ(0xFFFFFFFFu, EQU_CmdRes_Num("true"));
    EXPECT_EQ("\r\nfgets error[true]\n", GetCapturedStdout());
}

TEST(IsFileExist, ExistenceOnly)
{
    char acDir[] = "/tmp/equ_exist_XXXXXX";
    ASSERT_NE(nullptr, mkdtemp(acDir));
    std::string strFile = std::string(acDir) + "/f";
    EXPECT_EQ(200u, EQU_IsFileExist(strFile.c_str()));
    std::ofstream(strFile) << "x";
    chmod(strFile.c_str(), 0);
    EXPECT_EQ(0u, EQU_IsFileExist(strFile.c_str()));
    EXPECT_EQ(0u, EQU_IsFileExist(acDir));
    EXPECT_EQ(200u, EQU_IsFileExist(nullptr));
    unlink(strFile.c_str());
    rmdir(acDir);
}

TEST(CheckYesInput, OnlyASingleYConfirms)
{
    std::string strOut;
    EXPECT_EQ(1, confirm("y\r", &strOut));
    EXPECT_EQ("\r\nAre you sure?(Y/N)y", strOut);
    EXPECT_EQ(1, confirm("Y\r", &strOut));
    EXPECT_EQ(0, confirm("YY\r", &strOut));
    EXPECT_EQ(0, confirm("yes\r", &strOut));
    EXPECT_EQ(0, confirm("n\r", &strOut));
    EXPECT_EQ(0, confirm("\r", &strOut));
    EXPECT_EQ("\r\nAre you sure?(Y/N)", strOut);
}

TEST(CheckYesInput, EditingKeysAndIgnoredCharacters)
{
    std::string strOut;
    EXPECT_EQ(1, confirm("y\bY\r", &strOut));
    EXPECT_EQ("\r\nAre you sure?(Y/N)y\b \bY", strOut);
    // erase on an empty answer does nothing; line feed and controls are not echoed
    EXPECT_EQ(1, confirm("\x7f\by\n\x01\r", &strOut));
    EXPECT_EQ("\r\nAre you sure?(Y/N)y", strOut);
    EXPECT_EQ(1, confirm("n\x7fy\r", &strOut));
    // only the carriage return ends the answer; what follows stays unread
    EXPECT_EQ(0, confirm("n\ry\r", &strOut));
}

TEST(CheckYesInput, AnswerIsCutAt99Characters)
{
    std::string strOut;
    std::string strLong(99, 'a');
    EXPECT_EQ(0, confirm(strLong + "b\r", &strOut));
    EXPECT_EQ("\r\nAre you sure?(Y/N)" + strLong + "b\b \b", strOut);
    // the dropped character is not in the answer: erasing 99 leaves it empty
    std::string strErase(99, '\b');
    EXPECT_EQ(1, confirm(strLong + "b" + strErase + "y\r", &strOut));
}

TEST(CheckYesInput, EndOfInputRefuses)
{
    std::string strOut;
    EXPECT_EQ(0, confirm("y", &strOut));
}

class Tftp : public testing::Test {
protected:
    void SetUp() override
    {
        char acDir[] = "/tmp/equ_tftp_XXXXXX";
        ASSERT_NE(nullptr, mkdtemp(acDir));
        strDir = acDir;
        // A stand-in tftp that records its arguments and fails on request.
        std::string strTool = strDir + "/tftp";
        std::ofstream(strTool) << "#!/bin/sh\necho \"$@\" >> " << strDir
                               << "/args\nexit ${TFTP_RC:-0}\n";
        chmod(strTool.c_str(), 0755);
        strPath = getenv("PATH");
        setenv("PATH", (strDir + ":" + strPath).c_str(), 1);
        unsetenv("TFTP_RC");
        memset(acEquServerip, 0, sizeof(acEquServerip));
    }
    void TearDown() override
    {
        setenv("PATH", strPath.c_str(), 1);
        unsetenv("TFTP_RC");
        memset(acEquServerip, 0, sizeof(acEquServerip));
        EXPECT_EQ(0, system(("rm -rf " + strDir).c_str()));
    }
    std::string strDir;
    std::string strPath;
};

TEST_F(Tftp, FetchAndSendCommandLines)
{
    strcpy(acEquServerip, "1.2.3.4");
    EXPECT_EQ(0u, EQU_TftpTransferFile("/tmp/local", "remote", 0));
    EXPECT_EQ(0u, EQU_TftpTransferFile("/tmp/l2", "r2", 1));
    EXPECT_EQ("-g 1.2.3.4 -l /tmp/local -r remote\n-p 1.2.3.4 -l /tmp/l2 -r r2\n",
              slurp(strDir + "/args"));
}

TEST_F(Tftp, FailureNamesTheCommand)
{
    strcpy(acEquServerip, "192.168.100.200");
    setenv("TFTP_RC", "1", 1);
    CaptureStdout();
    EXPECT_EQ(200u, EQU_TftpTransferFile("a", "b", 1));
    EXPECT_EQ("\r\nerror: tftp -p 192.168.100.200 -l a -r b failed", GetCapturedStdout());
}

TEST_F(Tftp, ShortServerAddressIsRefused)
{
    strcpy(acEquServerip, "1.2.3");
    CaptureStdout();
    EXPECT_EQ(200u, EQU_TftpTransferFile("a", "b", 0));
    acEquServerip[0] = '\0';
    EXPECT_EQ(200u, EQU_TftpTransferFile("a", "b", 0));
    EXPECT_EQ("\r\nerror: you have not set the serverip\r\nerror: you have not set the serverip",
              GetCapturedStdout());
    EXPECT_NE(0, access((strDir + "/args").c_str(), F_OK));
}

TEST_F(Tftp, CommandLongerThanItsBufferIsNotRun)
{
    strcpy(acEquServerip, "1.2.3.4");
    // "tftp -g 1.2.3.4 -l  -r " is 23 characters: 76 more fill the 100 bytes
    std::string strLocal(40, 'L');
    EXPECT_EQ(0u, EQU_TftpTransferFile(strLocal.c_str(), std::string(36, 'R').c_str(), 0));
    CaptureStdout();
    EXPECT_EQ(200u, EQU_TftpTransferFile(strLocal.c_str(), std::string(37, 'R').c_str(), 0));
    std::string strOut = GetCapturedStdout();
    EXPECT_EQ(0u, strOut.rfind("\r\nerror: tftp -g 1.2.3.4 -l ", 0));
    std::string strArgs = slurp(strDir + "/args");
    EXPECT_EQ(1, std::count(strArgs.begin(), strArgs.end(), '\n'));
}

TEST(BoardPos, ExactKeywordsOnly)
{
    EXPECT_EQ(0u, EQU_GetBoardPos("mainboard"));
    EXPECT_EQ(14u, EQU_GetBoardPos("netboard"));
    EXPECT_EQ(255u, EQU_GetBoardPos("Mainboard"));
    EXPECT_EQ(255u, EQU_GetBoardPos("main"));
    EXPECT_EQ(255u, EQU_GetBoardPos(""));
    EXPECT_EQ(255u, EQU_GetBoardPos(nullptr));
}

namespace {

// The button rules on a board with a reset key and no power key, installed
// once per process (the command tree only grows).
void installButtons(void)
{
    static bool bDone = [] {
        EQU_BOARD_DESC_S stDesc{};
        stDesc.ucResetKey = 1;
        EQU_BOARD_DESC_S *pstSaved = gpstEquBoardDesc;
        gpstEquBoardDesc = &stDesc;
        EQU_Cmd_Button();
        gpstEquBoardDesc = pstSaved;
        return true;
    }();
    ASSERT_TRUE(bDone);
}

std::string run(const char *pcLine)
{
    char acLine[CLI_LINE_BUF_LEN];
    snprintf(acLine, sizeof(acLine), "%s", pcLine);
    CaptureStdout();
    CLI_MainProcess(acLine, 1);
    return GetCapturedStdout();
}

}  // namespace

TEST(ButtonTime, OnlyOneTo255SecondsPass)
{
    installButtons();
    const std::string strRefused = "\r\ntime can only be 1~255s, please check";
    for (const char *pcTime : {"0", "256", "-5", "000", "18446744073709551617"}) {
        std::string strOut = run((std::string("test reset button ") + pcTime).c_str());
        EXPECT_EQ(0u, strOut.find(strRefused)) << pcTime << ": " << strOut;
        EXPECT_EQ(std::string::npos, strOut.find("\r\n@")) << pcTime;
    }
    // "?" after an accepted time lists what may follow instead of running the test
    for (const char *pcTime : {"1", "255", "0255"}) {
        std::string strOut = run((std::string("test reset button ") + pcTime + " ?").c_str());
        EXPECT_EQ(std::string::npos, strOut.find(strRefused)) << pcTime;
        EXPECT_NE(std::string::npos, strOut.find("<cr>")) << pcTime << ": " << strOut;
    }
}

TEST(ButtonTime, PowerKeyCommandsNeedAPowerKey)
{
    installButtons();
    EXPECT_NE(std::string::npos, run("test powerkey button").find("Wrong Command Input!"));
}
