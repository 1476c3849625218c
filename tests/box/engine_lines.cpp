// Runs command lines through the engine in the box, for what the prompt does
// not reach: the CPU information command (no board table lists it), the PCIe
// slot status (no rule installs it: "test pcieslot N" here) and the lane
// switch with a server address (no command sets it yet).
//   engine_lines [-s SERVERIP] LINE...
// The terminal is set up as the interactive loop sets it (raw, output still
// translated), so that a confirmation reads the carriage return.
#include <cstdio>
#include <cstring>
#include <termios.h>
#include <unistd.h>

#include "equ_cli_cmd.h"
#include "equ_cmd.h"
#include "equ_common.h"
#include "equ_help_info.h"

int main(int argc, char **argv)
{
    setvbuf(stdout, nullptr, _IONBF, 0);
    int i = 1;
    if (argc > 2 && strcmp(argv[1], "-s") == 0) {
        snprintf(acEquServerip, sizeof(acEquServerip), "%s", argv[2]);
        i = 3;
    }
    termios stTerm{};
    if (tcgetattr(STDIN_FILENO, &stTerm) == 0) {
        cfmakeraw(&stTerm);
        stTerm.c_oflag |= OPOST;
        tcsetattr(STDIN_FILENO, TCSANOW, &stTerm);
    }
    EQU_Cmd_CpuInfo();
    EQU_Cmd_x4tox2();
    CLI_CMD_TEMPLET_S *pT = CLI_NewCmdTemplet();
    CLI_AddKey(pT, 1, "test", HELP_COMM_TEST);
    CLI_AddKey(pT, 2, "pcieslot", HELP_PCIE);
    CLI_AddPara(pT, 3, CLI_STRING, nullptr, HELP_PCIE_CHANNEL);
    CLI_InstallCmd(pT, 3, "$1 $2 $3", EQU_CmdProc_PcieGetSlotStatus);
    CLI_FreeCmdTemplet(pT, 3);
    for (; i < argc; i++) {
        char acLine[CLI_LINE_BUF_LEN];
        snprintf(acLine, sizeof(acLine), "%s", argv[i]);
        CLI_MainProcess(acLine, 1);
    }
    printf("\r\nengine_lines done\r\n");
    return 0;
}
