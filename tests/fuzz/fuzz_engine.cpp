// Fuzz target: the command engine and the validators alone. The board's whole
// command tree is built once with its real validators and help generators;
// the handlers are swapped for one that does nothing, so every input is
// parsed at full speed. Input: lines separated by '\n', each cut to the line
// buffer as the editor would; the first byte's low bit picks the language.
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "equ_cli_cmd.h"
#include "fuzz_board.h"

namespace {

uint64_t do_nothing(CLI_CMD_PARA_S *)
{
    return 0;
}

void quiet_handlers(CLI_CMD_NODE_S *pstLevel)
{
    for (CLI_CMD_NODE_S *pstNode = pstLevel; pstNode != nullptr; pstNode = pstNode->pstBrother) {
        if (pstNode->pfHandler != nullptr) {
            pstNode->pfHandler = do_nothing;
        }
        quiet_handlers(pstNode->pstSon);
    }
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***)
{
    fuzz_board_init();
    fuzz_register_commands();
    quiet_handlers(gpstCmdTempletRoot);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *pucData, size_t ulSize)
{
    const uint64_t ulLanguage = ulSize > 0 ? (pucData[0] & 1u) : 0;
    char szLine[CLI_LINE_BUF_LEN];
    size_t ulPos = 0;
    while (ulPos < ulSize) {
        const void *pEnd = memchr(pucData + ulPos, '\n', ulSize - ulPos);
        size_t ulEnd =
            pEnd ? static_cast<size_t>(static_cast<const uint8_t *>(pEnd) - pucData) : ulSize;
        size_t ulLen = ulEnd - ulPos < sizeof(szLine) - 1 ? ulEnd - ulPos : sizeof(szLine) - 1;
        memcpy(szLine, pucData + ulPos, ulLen);
        szLine[ulLen] = '\0';
        CLI_MainProcess(szLine, ulLanguage);
        ulPos = ulEnd + 1;
    }
    return 0;
}
