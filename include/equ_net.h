// What the network test modules offer each other, and the parts of the
// loopback module that no command reaches (a harness in the box calls them).
#pragma once
#include <cstdint>

#include "equ_cli_cmd.h"

// IPv4 address text (equ_cmd_ip); also checks the ping target.
uint64_t EQU_CmdCheck_IPAddr(const char *pcToken, CLI_CMD_PARA_S *pstCmdPara);
// Copper port number or "all" (equ_cmd_net_ping); also bounds fiber ports.
uint64_t EQU_CmdCheck_NetPort(const char *pcToken, CLI_CMD_PARA_S *pstCmdPara);

// MAC addresses of eth<u8Eth> (equ_cmd_mac); 0 or 200.
uint32_t EQU_SetEthMac(uint8_t u8Eth, const char *pcMac);
uint32_t EQU_GetEthMac(uint8_t u8Eth, char *pcMac);  // pcMac: at least 18 bytes
// Bytes 0-3 into the low word (byte 0 lowest), bytes 4-5 into the high one.
uint32_t EQU_MacStrToMacAddr(const char *pcMac, uint32_t *pu32Low, uint16_t *pu16High);

// Loopback module (equ_cmd_net_loopback).
uint32_t EQU_EthLoopBackTest(const char *pcEthName, uint32_t u32PktLen, uint32_t u32PktNum,
                             uint32_t u32PktContent);
uint32_t EQU_SetEthModeParams(int64_t lPort, int64_t lSpeed);
// Parameters PORT SPEED LENGTH COUNT CONTENT, as "test ethernet PORT loopback
// int-phy copper ..." would give them; the sum of the ports' results.
uint64_t EQU_CmdProc_IntLoopCopper(CLI_CMD_PARA_S *pstCmdPara);
