// LED test.
//
// Commands:
//   test led on    the two LED sets flash alternately, one second each
//   test led off   flashing stops and every LED is switched off
// Pass: "on" always passes; "off" passes when all eight LEDs were switched
// off. Fail: a GPIO node did not open or a request failed.
//
// Touches: /dev/hal_gpio, group 3 bits 22 to 29 (even and odd set), mode
// request 0x4061F (mode 1) then value request 0x40610 on one open per LED;
// writing 1 switches an LED off.
//
// The flashing is done by EQU_CmdProc_LedFlick, a worker that the
// interactive loop starts once; the commands steer it through two flags.
//
// Kept on purpose:
// - A failed flash cycle ends the worker for good: after it "on" has no
//   effect and "off" still switches the LEDs off.
#include "equ_cmd.h"

#include <atomic>
#include <cstdint>
#include <cstdio>
#include <unistd.h>

#include "equ_cli_cmd.h"
#include "equ_common.h"
#include "equ_help_info.h"

namespace {

// Written by the commands: 1 while the worker is to flash the LEDs.
std::atomic<uint32_t> gbequledflicken{0};
// Written by the worker: 1 once it has completed a flash cycle, 0 once it has
// seen that flashing is off (or has ended).
std::atomic<uint32_t> gbequledrun{0};

constexpr uint32_t kLedGroup = 3;
constexpr uint32_t kLedMode = 1;
constexpr uint32_t kLedOff = 1;
constexpr uint32_t kLedOn = 0;
constexpr uint32_t kEvenSet[] = {22, 24, 26, 28};
constexpr uint32_t kOddSet[] = {23, 25, 27, 29};

// One open of the GPIO node per call, mode then value, as the LED lines need.
uint32_t EQU_LedGpioControl(uint32_t u32Group, uint32_t u32Bit, uint32_t u32Mode, uint32_t u32Val)
{
    return EQU_GPIO_SetModeAndWrite(u32Group, u32Bit, u32Mode, u32Val);
}

uint32_t led_set_all(const uint32_t (&au32Bits)[4], uint32_t u32Val)
{
    uint32_t u32Ret = 0;
    for (uint32_t u32Bit : au32Bits) {
        u32Ret |= EQU_LedGpioControl(kLedGroup, u32Bit, kLedMode, u32Val);
    }
    return u32Ret;
}

void set_run(uint32_t u32Val)
{
    gbequledrun.store(u32Val);
    gbequledrun.notify_all();
}

// One two-second cycle: all off, even set on, then odd set on. Failures are
// gathered over the whole cycle; the worker ends after a failed one.
uint32_t flash_cycle(void)
{
    uint32_t u32Ret = 0;
    u32Ret |= led_set_all(kEvenSet, kLedOff);
    u32Ret |= led_set_all(kOddSet, kLedOff);
    u32Ret |= led_set_all(kEvenSet, kLedOn);
    sleep(1);
    u32Ret |= led_set_all(kEvenSet, kLedOff);
    u32Ret |= led_set_all(kOddSet, kLedOn);
    set_run(1);
    sleep(1);
    return u32Ret;
}

// ---- handlers ----

uint64_t EQU_CmdProc_LedOnAll(CLI_CMD_PARA_S *pstCmdPara)
{
    (void)pstCmdPara;
    gbequledflicken.store(1);
    gbequledflicken.notify_all();
    return EQU_OK;
}

// Waits for the worker to leave its cycle before switching everything off,
// so that the worker cannot switch a set on again afterwards.
uint64_t EQU_CmdProc_LedOffAll(CLI_CMD_PARA_S *pstCmdPara)
{
    (void)pstCmdPara;
    gbequledflicken.store(0);
    gbequledflicken.notify_all();
    while (gbequledrun.load() == 1) {
        gbequledrun.wait(1);
    }
    uint32_t u32Ret = led_set_all(kOddSet, kLedOff);
    u32Ret |= led_set_all(kEvenSet, kLedOff);
    return u32Ret != 0 ? EQU_FAIL : EQU_OK;
}

}  // namespace

// ---- worker ----

// Sleeps on the flag while flashing is off; a failed cycle ends the thread
// for good, leaving the run flag clear so that "led off" never waits on it.
// The run flag is raised before a cycle's first write and the flashing flag
// read again after it: "led off" either sees the raised flag and waits for
// the cycle, or the worker sees flashing stopped and skips the cycle, so the
// LEDs cannot be switched on again behind "led off".
void *EQU_CmdProc_LedFlick(void *pArg)
{
    (void)pArg;
    for (;;) {
        if (gbequledflicken.load() == 0) {
            set_run(0);
            gbequledflicken.wait(0);
            continue;
        }
        set_run(1);
        if (gbequledflicken.load() == 0) {
            continue;
        }
        if (flash_cycle() != 0) {
            break;
        }
    }
    printf("\r\nsomething wrong with led thread!");
    fflush(stdout);
    set_run(0);
    return nullptr;
}

// ---- registration ----

void EQU_Cmd_Led(void)
{
    CLI_CMD_TEMPLET_S *pT = CLI_NewCmdTemplet();
    CLI_AddKey(pT, 1, "test", HELP_COMM_TEST);
    CLI_AddKey(pT, 2, "led", HELP_LED);
    CLI_AddKey(pT, 3, "off", HELP_LED_OFF);
    CLI_AddKey(pT, 4, "on", HELP_LED_ON);
    CLI_InstallCmd(pT, 4, "$1 $2 $3", EQU_CmdProc_LedOffAll);  // test led off
    CLI_InstallCmd(pT, 4, "$1 $2 $4", EQU_CmdProc_LedOnAll);   // test led on
    CLI_FreeCmdTemplet(pT, 4);
}
