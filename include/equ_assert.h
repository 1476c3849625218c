// Contract checks of the engine and the board registry. They stay on in every
// build and report through the C library's assertion message, naming the file,
// line and function given and the expression as written in the parameters'
// names (not as the compiler would spell it).
#pragma once
#include <assert.h>

// <assert.h> leaves the reporting function undeclared under NDEBUG; these
// checks use it in every build.
extern "C" void __assert_fail(const char *__assertion, const char *__file, unsigned int __line,
                              const char *__function) noexcept __attribute__((__noreturn__));

#define EQU_ASSERT_AT(cond, text, file, line)                                                      \
    ((cond) ? (void)0 : __assert_fail(text, file, line, __func__))

// The engine's checks: the expression's own text, this file and line.
#define CLI_ASSERT(cond) EQU_ASSERT_AT(cond, #cond, "src/equ_cli_cmd.c", __LINE__)
