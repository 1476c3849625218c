// Common services of the test modules: the board's device nodes (nvram, MDIO,
// I2C, CPU registers, GPIO, remote-control receiver), shell runs, TFTP
// transfer, operator confirmation.
#pragma once
#include <cstdint>

#define EQU_OK   0
#define EQU_FAIL 200

#define EQU_ENV_NAME_LEN  64
#define EQU_ENV_VALUE_LEN 5120

// nvram variable record: exactly the driver's layout (5,184 bytes).
struct EQU_ENV_S {
    char szName[EQU_ENV_NAME_LEN];
    char szValue[EQU_ENV_VALUE_LEN];
};
static_assert(sizeof(EQU_ENV_S) == 5184);

// TFTP server address, set by "set serverip"; in memory only.
extern char acEquServerip[16];

// ---- device access ----
uint32_t EQU_GetEnvFromFlash(EQU_ENV_S *pstEnv);
uint32_t EQU_SetEnvToFlash(EQU_ENV_S *pstEnv);
uint32_t EQU_Mdio_Read(uint32_t u32EthIdx, uint32_t u32PhyAddr, uint32_t u32Reg, uint32_t *pu32Val);
uint32_t EQU_Mdio_Write(uint32_t u32EthIdx, uint32_t u32PhyAddr, uint32_t u32Reg, uint32_t u32Val);
uint32_t EQU_I2C_Read(uint8_t ucBus, uint8_t ucDevAddr, uint8_t ucReg, uint32_t u32Len,
                      uint32_t *pu32Val);
uint32_t EQU_I2C_Write(uint8_t ucBus, uint8_t ucDevAddr, uint8_t ucReg, uint32_t u32Val);
int32_t EQU_CPUReg_Read(uint32_t u32RegAddr, uint32_t *pu32Val);  // 0, 200, or -1 (open failed)
int32_t EQU_CPUReg_Write(uint32_t u32RegAddr, uint32_t u32Val);
uint32_t EQU_GPIO_ReadByte(uint32_t u32Group, uint32_t u32Bit, uint32_t *pu32Val);
uint32_t EQU_GPIO_WriteByte(uint32_t u32Group, uint32_t u32Bit, uint32_t u32Val);
uint32_t EQU_GPIO_SetMode(uint32_t u32Group, uint32_t u32Bit, uint32_t u32Mode);
// Set-mode then write on one open of the GPIO node (how output lines such as
// the LEDs and heaters are driven); stops at the first failure.
uint32_t EQU_GPIO_SetModeAndWrite(uint32_t u32Group, uint32_t u32Bit, uint32_t u32Mode,
                                  uint32_t u32Val);
uint32_t EQU_SetRmcTestMode(uint32_t u32Mode);
void EQU_Print_Bit(uint8_t ucVal, uint8_t ucWidth);

// ---- shell, transfer, confirmation ----
int EQU_CheckYesInput(void);  // 1 confirmed, else 0
uint32_t EQU_TftpTransferFile(const char *pcLocal, const char *pcRemote, uint8_t ucPut);
uint32_t EQU_IsFileExist(const char *pcPath);
uint32_t EQU_System(const char *pcCmd);
uint32_t EQU_CmdRes_Num(const char *pcCmd);  // all ones on failure

// "mainboard" 0, "netboard" 14, anything else 255.
uint32_t EQU_GetBoardPos(const char *pcBoard);
