// Fuzz target: the whole console. The input is what the operator types, fed
// on a pipe to the interactive loop over the board's full command tree with
// every handler real: line editor, history, Tab, "?", user and equipment
// mode, and the tests themselves against the box's simulated board.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <unistd.h>

#include "equ_board.h"
#include "equ_cli_cmd.h"
#include "fuzz_board.h"

namespace {

// A pipe holds this much without a reader.
constexpr size_t kMaxKeys = 60000;

// Each input starts with an empty history, so a finding replays alone.
void forget_history(void)
{
    for (char *&pcLine : gapcHistoryCmd) {
        free(pcLine);
        pcLine = nullptr;
    }
    gulHistorySavePosition = 0;
    gulHistoryShowPosition = 0;
}

bool keys_on_stdin(const uint8_t *pucData, size_t ulSize)
{
    int aiPipe[2];
    if (pipe(aiPipe) != 0) {
        return false;
    }
    size_t ulLen = ulSize < kMaxKeys ? ulSize : kMaxKeys;
    bool bOk = write(aiPipe[1], pucData, ulLen) == static_cast<ssize_t>(ulLen);
    close(aiPipe[1]);
    bOk = bOk && dup2(aiPipe[0], STDIN_FILENO) == STDIN_FILENO;
    close(aiPipe[0]);
    clearerr(stdin);
    return bOk;
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***)
{
    fuzz_board_init();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *pucData, size_t ulSize)
{
    if (!keys_on_stdin(pucData, ulSize)) {
        return -1;
    }
    forget_history();
    gbAutoFixed = 0;
    glCursor = 0;
    fuzz_register_commands();
    CLI_ProcessCmd(gpstEquBoardDesc->pcModel);
    return 0;
}
