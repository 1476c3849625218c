// The key-chip module's access library: write-and-read-back tests over MDIO,
// I2C and the SATA bridge, PCI configuration space, physical memory, the
// chip reset line and the chip counts of plug-in cards. The chips of the
// current boards use only the MDIO test; the rest serves chip types that
// other boards carry. All return 0 or 200 unless noted.
#pragma once
#include <cstdint>

// A PCI function, as the board lists its devices.
struct EQU_PCI_DEV_S {
    uint8_t ucBus;
    uint8_t ucDev;
    uint8_t ucFunc;
};

// Kind of storage card last counted: 0 (two chips of type 32), 1 (four), 204.
extern int giStorType;

// Mode 1 pulses the chip's reset line between the write and the read-back
// and then expects the register to have lost the test value.
uint32_t EQU_ChipTestByMii(uint32_t u32Idx, uint32_t u32Eth, uint32_t u32Mode, uint32_t u32Phy,
                           uint32_t u32Reg, uint32_t u32Val);
uint32_t EQU_ChipTestByIIC(uint32_t u32Idx, uint32_t u32Pos, uint32_t u32Mode, uint8_t ucBus,
                           uint8_t ucDevAddr, uint8_t ucReg, uint32_t u32Val);
uint32_t EQU_ChipTestBySata(uint32_t u32Idx, uint32_t u32Pos, uint32_t u32Mode, uint32_t u32Param1,
                            uint32_t u32Param2);
uint32_t EQU_ChipReset(uint32_t u32Idx, uint32_t u32Pos);

// At most 4 bytes at the offset, least significant first.
uint32_t EQU_ReadPciConfig(const EQU_PCI_DEV_S *pstDev, uint32_t u32Off, uint32_t u32Len,
                           uint32_t *pu32Val);
uint32_t EQU_WritePciConfig(const EQU_PCI_DEV_S *pstDev, uint32_t u32Off, uint32_t u32Len,
                            uint32_t u32Val);
// The device's first resource address, as the shell prints it.
uint32_t EQU_ReadPciAddr(const EQU_PCI_DEV_S *pstDev, uint32_t *pu32Val);
// Within one 4 KiB page at the physical base.
uint32_t EQU_MemRead(uint64_t ulBase, uint32_t u32Off, uint32_t u32Len, uint32_t *pu32Val);
uint32_t EQU_MemWrite(uint64_t ulBase, uint32_t u32Off, uint32_t u32Len, uint32_t u32Val);
uint32_t EQU_MemRead_DC(uint32_t u32Addr, uint32_t *pu32Val);

// Chips of a type on the plug-in card at a board position (5, 6 storage
// cards; 7, 8 sub-cards); 200 leaves the count untouched.
uint32_t Equ_GetSpcBoard_ChipNum(uint32_t u32Pos, uint32_t u32Type, uint32_t *pu32Num);
uint32_t EQU_GetStorCardChipNum(uint32_t u32Pos, uint32_t u32Type, uint32_t *pu32Num);
uint32_t EQU_GetSubCardChipNum(uint32_t u32Pos, uint32_t u32Type, uint32_t *pu32Num);
uint32_t EQU_GetTq4416ChipNum(uint32_t u32Type, uint32_t *pu32Num);
uint32_t EQU_GetTq4408ChipNum(uint32_t u32Type, uint32_t *pu32Num);
uint32_t EQU_GetTqm36ChipNum(uint32_t u32Type, uint32_t *pu32Num);
uint32_t EQU_GetTqm34ChipNum(uint32_t u32Type, uint32_t *pu32Num);
