// Registration functions of the test modules, and the command table that
// every board of this family lists (in calling order). A module joins the
// table when it is built; the others keep their order.
#pragma once
#include <atomic>
#include <cstdint>

struct CLI_CMD_PARA_S;

void EQU_Cmd_Watchdog(void);
void EQU_Cmd_Button(void);
void EQU_Cmd_Led(void);

#define EQU_CMD_TBL_K5T2B01 EQU_Cmd_Watchdog, EQU_Cmd_Button, EQU_Cmd_Led

// LED test (its worker runs for the life of the interactive loop).
void *EQU_CmdProc_LedFlick(void *pArg);

// LED commands and their worker's flags (the commands write the first, the
// worker the second).
extern std::atomic<uint32_t> gbequledflicken;
extern std::atomic<uint32_t> gbequledrun;
uint32_t EQU_LedGpioControl(uint32_t u32Group, uint32_t u32Bit, uint32_t u32Mode, uint32_t u32Val);
uint64_t EQU_CmdProc_LedOnAll(CLI_CMD_PARA_S *pstCmdPara);
uint64_t EQU_CmdProc_LedOffAll(CLI_CMD_PARA_S *pstCmdPara);
