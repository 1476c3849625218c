// Runs the loopback module's parts that no command reaches, on the board in
// the box:
//   net_loopback raw IFNAME LENGTH COUNT CONTENT    the raw-packet test
//   net_loopback mode PORT SPEED                    the port-mode setter
//   net_loopback PORT SPEED LENGTH COUNT CONTENT    the internal loopback,
//       typed as "test ethernet PORT loopback int-phy copper ..." would be
// and prints "result=N" (the internal loopback prints its frame instead).
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "drv_api.h"
#include "equ_board.h"
#include "equ_cli_cmd.h"
#include "equ_net.h"

namespace {

void install_int_loop(void)
{
    CLI_CMD_TEMPLET_S *pT = CLI_NewCmdTemplet();
    CLI_AddKey(pT, 1, "test", HELP_COMM_TEST);
    CLI_AddKey(pT, 2, "ethernet", HELP_NET_ETHERNET);
    CLI_AddPara(pT, 3, CLI_STRING, EQU_CmdCheck_NetPort, HELP_COMM_PORT_NUM);
    CLI_AddKey(pT, 4, "loopback", HELP_NET_LINK);
    CLI_AddKey(pT, 5, "int-phy", HELP_NET_INT_PHY);
    CLI_AddKey(pT, 6, "copper", HELP_NET_COPPER);
    for (uint32_t i = 7; i <= 10; i++) {
        CLI_AddPara(pT, i, CLI_INTEGER, nullptr, HELP_NET_PKT_LEN);
    }
    CLI_InstallCmd(pT, 10, "$1 $2 $3 $4 $5 $6 $7 $8 $9 $10", EQU_CmdProc_IntLoopCopper);
    CLI_FreeCmdTemplet(pT, 10);
}

}  // namespace

int main(int argc, char **argv)
{
    uint32_t u32Id = 0;
    if (DRV_Init(200) != 0 || DRV_SysCtl(DRV_SYS_GET_BOARD_ID, &u32Id) != 0 ||
        EQU_BoardDescCreat(u32Id, &gpstEquBoardDesc) != 0) {
        return 2;
    }
    unsigned long ulRet = 0;
    if (argc == 6 && strcmp(argv[1], "raw") == 0) {
        ulRet = EQU_EthLoopBackTest(argv[2], atoi(argv[3]), atoi(argv[4]), atoi(argv[5]));
    } else if (argc == 4 && strcmp(argv[1], "mode") == 0) {
        ulRet = EQU_SetEthModeParams(atoi(argv[2]), atoi(argv[3]));
    } else if (argc == 6) {
        install_int_loop();
        std::string line = std::string("test ethernet ") + argv[1] + " loopback int-phy copper";
        for (int i = 2; i < argc; i++) {
            line += std::string(" ") + argv[i];
        }
        std::string buf = line;
        CLI_MainProcess(buf.data(), 1);
        printf("\n");
        return 0;
    } else {
        return 2;
    }
    printf("\r\nresult=%lu\n", ulRet);
    return 0;
}
