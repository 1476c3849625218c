// What both fuzz targets share: the tool's board brought up in this process
// (inside the box, on the simulator's libraries) and its commands registered.
#pragma once

// Once per process: quiet stdout, driver start-up, the board description.
void fuzz_board_init(void);
// Builds the board's whole command tree again (the console loop frees it).
void fuzz_register_commands(void);
