// The command-line engine: command templates and rules merged into one command
// tree, the line parser that walks the tree and calls a path's handler inside
// the "@" ... "$$" frame, the "?" help lists, Tab completion and the caret
// pointers under wrong input, and the interactive loop that owns the console
// (raw terminal, line editor, history). Everything it prints goes to standard
// output; the loop alone touches standard input's terminal attributes.
// Broken registrations are programming errors and stop the program through
// CLI_ASSERT.
#include <cctype>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <initializer_list>
#include <fcntl.h>
#include <pthread.h>
#include <termios.h>
#include <unistd.h>

#include "equ_assert.h"
#include "equ_cli_cmd.h"
#include "equ_cmd.h"

#ifdef CLI_COVERAGE
extern "C" void __gcov_dump(void);
#endif

CLI_CMD_NODE_S *gpstCmdTempletRoot = nullptr;
char gszLineBuf[CLI_LINE_BUF_LEN] = {};
char gszSysPrompt[128] = "Corvanet";
int gbAutoFixed = 0;
int32_t genLanguage = 1;

// ===========================================================================
// Console output
// ===========================================================================

namespace {

// The engine's output is assembled here and leaves in one write per piece
// (stdout is unbuffered: every printf would be a write of its own). It is
// flushed before anything else may print (handlers, validators, help
// generators) and before the loop waits for a key, so the console sees
// everything in order.
char g_acOut[4096];
size_t g_ulOutLen = 0;

void out_flush(void)
{
    if (g_ulOutLen > 0) {
        (void)fwrite(g_acOut, 1, g_ulOutLen, stdout);
        g_ulOutLen = 0;
    }
}

void out_put(const char *pcText, size_t ulLen)
{
    if (g_ulOutLen + ulLen > sizeof(g_acOut)) {
        out_flush();
        if (ulLen > sizeof(g_acOut)) {
            (void)fwrite(pcText, 1, ulLen, stdout);
            return;
        }
    }
    memcpy(g_acOut + g_ulOutLen, pcText, ulLen);
    g_ulOutLen += ulLen;
}

void out_str(const char *pcText)
{
    out_put(pcText, strlen(pcText));
}

void out_char(char c)
{
    out_put(&c, 1);
}

void out_blanks(size_t ulCount)
{
    static const char s_acBlanks[] = "                                ";
    for (; ulCount > sizeof(s_acBlanks) - 1; ulCount -= sizeof(s_acBlanks) - 1) {
        out_put(s_acBlanks, sizeof(s_acBlanks) - 1);
    }
    out_put(s_acBlanks, ulCount);
}

// Held by every public function that prints: the outermost one flushes on
// its way out, so that a caller outside the engine finds all its output
// written, while the loop gathers a command's closing and the next prompt.
int g_iOutHold = 0;

class OutPiece {
  public:
    OutPiece() { g_iOutHold++; }
    ~OutPiece()
    {
        if (--g_iOutHold == 0) {
            out_flush();
        }
    }
    OutPiece(const OutPiece &) = delete;
    OutPiece &operator=(const OutPiece &) = delete;
};

// Only for the few formats with a number in them.
void out_int(const char *pcBefore, int iValue, const char *pcAfter)
{
    char acNum[16];
    int iLen = snprintf(acNum, sizeof(acNum), "%d", iValue);
    out_str(pcBefore);
    out_put(acNum, static_cast<size_t>(iLen));
    out_str(pcAfter);
}

}  // namespace

// ===========================================================================
// Templates, rules and the command tree
// ===========================================================================

namespace {

// Bounded copy that always terminates; a longer text is cut.
void tree_copy_text(char *pcDst, size_t ulSize, const char *pcSrc)
{
    size_t ulLen = strnlen(pcSrc, ulSize - 1);
    memcpy(pcDst, pcSrc, ulLen);
    pcDst[ulLen] = '\0';
}

bool tree_is_rule_blank(char c)
{
    return c == ' ' || c == '\t' || c == '\n' || c == '\v' || c == '\f' || c == '\r';
}

// Numbers outside the template or naming an empty slot would make the link
// read memory that is not an element: such a rule is refused instead.
bool tree_rule_names_elements(CLI_CMD_TEMPLET_S *pTotalCmdVec, const int64_t *plCmdVec,
                              int64_t lCount)
{
    for (int64_t i = 0; i < lCount; i++) {
        if (plCmdVec[i] < 1 || plCmdVec[i] > CLI_TEMPLET_SIZE ||
            pTotalCmdVec[plCmdVec[i] - 1] == nullptr) {
            return false;
        }
    }
    return true;
}

}  // namespace

// The first bytes of a level's keywords side by side, so that a word is
// matched without visiting every sibling, and the level's first slot of
// each kind.
struct CLI_LEVEL_INDEX_S {
    size_t ulCount;
    size_t ulCap;
    char *pcInitial;
    CLI_CMD_NODE_S **ppstNode;
    CLI_CMD_NODE_S *apstSlot[3];  // by CLI_NODE_KIND_E; the keyword entry is unused
};

namespace {

bool tree_index_add(CLI_LEVEL_INDEX_S *pstIndex, CLI_CMD_NODE_S *pstNode)
{
    if (pstIndex->ulCount == pstIndex->ulCap) {
        size_t ulCap = pstIndex->ulCap == 0 ? 8 : pstIndex->ulCap * 2;
        auto *pcInitial = static_cast<char *>(realloc(pstIndex->pcInitial, ulCap));
        if (pcInitial == nullptr) {
            return false;
        }
        pstIndex->pcInitial = pcInitial;
        auto *ppstNode = static_cast<CLI_CMD_NODE_S **>(
            realloc(pstIndex->ppstNode, ulCap * sizeof(CLI_CMD_NODE_S *)));
        if (ppstNode == nullptr) {
            return false;
        }
        pstIndex->ppstNode = ppstNode;
        pstIndex->ulCap = ulCap;
    }
    pstIndex->pcInitial[pstIndex->ulCount] = pstNode->szKey[0];
    pstIndex->ppstNode[pstIndex->ulCount++] = pstNode;
    if (pstIndex->apstSlot[pstNode->enKind] == nullptr) {
        pstIndex->apstSlot[pstNode->enKind] = pstNode;
    }
    return true;
}

void tree_index_free(CLI_CMD_NODE_S *pstFirst)
{
    CLI_LEVEL_INDEX_S *pstIndex = pstFirst->pstLevelIndex;
    if (pstIndex != nullptr) {
        free(pstIndex->pcInitial);
        free(pstIndex->ppstNode);
        free(pstIndex);
        pstFirst->pstLevelIndex = nullptr;
    }
}

// Adds the nodes appended since the index was last brought up to date.
// Without memory the level simply goes without an index.
void tree_index_extend(CLI_CMD_NODE_S *pstFirst)
{
    CLI_LEVEL_INDEX_S *pstIndex = pstFirst->pstLevelIndex;
    if (pstIndex == nullptr) {
        pstIndex = static_cast<CLI_LEVEL_INDEX_S *>(calloc(1, sizeof(CLI_LEVEL_INDEX_S)));
        if (pstIndex == nullptr) {
            return;
        }
        pstFirst->pstLevelIndex = pstIndex;
    }
    CLI_CMD_NODE_S *pstNode =
        pstIndex->ulCount == 0 ? pstFirst : pstIndex->ppstNode[pstIndex->ulCount - 1]->pstBrother;
    for (; pstNode != nullptr; pstNode = pstNode->pstBrother) {
        if (!tree_index_add(pstIndex, pstNode)) {
            tree_index_free(pstFirst);
            return;
        }
    }
}

CLI_NODE_KIND_E tree_kind_of(const char *pcKey)
{
    if (strcmp(pcKey, CLI_INTEGER) == 0) {
        return CLI_NODE_INTEGER;
    }
    return strcmp(pcKey, CLI_STRING) == 0 ? CLI_NODE_STRING : CLI_NODE_KEYWORD;
}

CLI_CMD_NODE_S *tree_copy_element(const CLI_CMD_ELEMENT_S *pstElement)
{
    auto *pstNode = static_cast<CLI_CMD_NODE_S *>(malloc(sizeof(CLI_CMD_NODE_S)));
    if (pstNode != nullptr) {
        memcpy(pstNode, pstElement, sizeof(*pstNode));
        pstNode->pstBrother = nullptr;
        pstNode->pstSon = nullptr;
        pstNode->pstLevelIndex = nullptr;
    }
    return pstNode;
}

}  // namespace

CLI_CMD_TEMPLET_S *CLI_NewCmdTemplet(void)
{
    return static_cast<CLI_CMD_TEMPLET_S *>(calloc(CLI_TEMPLET_SIZE, sizeof(CLI_CMD_TEMPLET_S)));
}

int64_t CLI_NewCmdElement(CLI_CMD_TEMPLET_S *pTemplet, uint32_t ulNum, const char *pcKey,
                          uint64_t ulParaId, uint32_t ulHasValue, uint64_t ulValue,
                          CLI_CMD_CHECK_PF pfCheck, CLI_HELP_GEN_PF pfHelpGen,
                          const EQU_KEY_HELP_INFO_S *pstKeyHelpInfo, uint64_t ulHelpIdx)
{
    CLI_ASSERT(NULL != pcKey);
    CLI_ASSERT(NULL != pstKeyHelpInfo);
    if (pTemplet == nullptr || ulNum < 1 || ulNum > CLI_TEMPLET_SIZE) {
        return -1;
    }
    auto *pstCmdElement = static_cast<CLI_CMD_ELEMENT_S *>(calloc(1, sizeof(CLI_CMD_ELEMENT_S)));
    CLI_ASSERT(NULL != pstCmdElement);
    tree_copy_text(pstCmdElement->szKey, sizeof(pstCmdElement->szKey), pcKey);
    pstCmdElement->enKind = tree_kind_of(pstCmdElement->szKey);
    pstCmdElement->ulParaId = ulParaId;
    pstCmdElement->ulHasValue = ulHasValue;
    pstCmdElement->ulValue = ulValue;
    pstCmdElement->pfHelpGen = pfHelpGen;
    pstCmdElement->pfCheck = pfCheck;
    pstCmdElement->pstHelpTbl = pstKeyHelpInfo;
    pstCmdElement->ulHelpIdx = ulHelpIdx;
    pTemplet[ulNum - 1] = pstCmdElement;
    return 0;
}

int64_t CLI_CmdRuleCheck(const char *pcRule, int64_t *plCmdVec, int64_t *plCount)
{
    if (pcRule == nullptr || plCmdVec == nullptr || plCount == nullptr) {
        return -1;
    }
    const char *pszCur = pcRule;
    int64_t lCount = 0;
    while (*pszCur != '\0') {
        CLI_ASSERT(*pszCur == '$');
        const char *pszDigits = ++pszCur;
        uint64_t ulNum = CLI_Skip_AtoI(&pszCur);
        // The caller's array holds one rule's worth of numbers.
        if (pszCur == pszDigits || lCount >= CLI_TEMPLET_SIZE) {
            return -1;
        }
        plCmdVec[lCount++] = static_cast<int64_t>(ulNum);
        if (*pszCur == '\0') {
            break;
        }
        if (!tree_is_rule_blank(*pszCur)) {
            CLI_ASSERT(*pszCur == ' ');
        }
        pszCur++;
    }
    *plCount = lCount;
    return 0;
}

CLI_CMD_NODE_S *CLI_GetCmdLinkFromRule(CLI_CMD_TEMPLET_S *pTotalCmdVec, int64_t lTotalElementNum,
                                       const int64_t *plCmdVec, int64_t lCount,
                                       CLI_CMD_HANDLER_PF pfHandlefunc)
{
    CLI_ASSERT(NULL != pTotalCmdVec);
    CLI_ASSERT(NULL != plCmdVec);
    CLI_ASSERT(NULL != pfHandlefunc);
    if (lCount < 1 || lCount > CLI_TEMPLET_SIZE) {
        return nullptr;
    }
    for (int64_t i = 0; i < lCount; i++) {
        CLI_ASSERT(plCmdVec[i] <= lTotalElementNum);
    }
    if (!tree_rule_names_elements(pTotalCmdVec, plCmdVec, lCount)) {
        return nullptr;
    }
    CLI_CMD_NODE_S *pstCmdLinkRoot = tree_copy_element(pTotalCmdVec[plCmdVec[0] - 1]);
    CLI_ASSERT(NULL != pstCmdLinkRoot);
    CLI_CMD_NODE_S *pstLast = pstCmdLinkRoot;
    for (int64_t i = 1; i < lCount; i++) {
        CLI_CMD_NODE_S *pstSon = tree_copy_element(pTotalCmdVec[plCmdVec[i] - 1]);
        CLI_ASSERT(NULL != pstSon);
        pstLast->pstSon = pstSon;
        pstLast = pstSon;
    }
    pstLast->pfHandler = pfHandlefunc;
    pstLast->pstSon = nullptr;
    return pstCmdLinkRoot;
}

CLI_CMD_NODE_S *CLI_MatchInBrotherCmd(CLI_CMD_NODE_S *pstCurTemplet, CLI_CMD_NODE_S *pstCmdNode)
{
    CLI_ASSERT(NULL != pstCmdNode);
    CLI_ASSERT(NULL != pstCurTemplet);
    for (CLI_CMD_NODE_S *pstNode = pstCurTemplet; pstNode != nullptr;
         pstNode = pstNode->pstBrother) {
        if (strcmp(pstNode->szKey, pstCmdNode->szKey) == 0) {
            return pstNode;
        }
    }
    return nullptr;
}

int64_t CLI_AddInBrotherCmd(CLI_CMD_NODE_S *pstCmdTemplet, CLI_CMD_NODE_S *pstCmdNode)
{
    CLI_ASSERT(NULL != pstCmdNode);
    CLI_ASSERT(NULL != pstCmdTemplet);
    CLI_CMD_NODE_S *pstLast = pstCmdTemplet;
    while (pstLast->pstBrother != nullptr) {
        pstLast = pstLast->pstBrother;
    }
    pstLast->pstBrother = pstCmdNode;
    tree_index_extend(pstCmdTemplet);
    return 0;
}

// The first installation of a word fixes everything but a missing handler;
// later copies of the word are dropped, the rest of the link hangs below.
int64_t CLI_InstallCmdTemplet(CLI_CMD_NODE_S *pstCmdLink)
{
    CLI_ASSERT(NULL != pstCmdLink);
    if (gpstCmdTempletRoot == nullptr) {
        gpstCmdTempletRoot = pstCmdLink;
        return 0;
    }
    CLI_CMD_NODE_S *pstLevel = gpstCmdTempletRoot;
    CLI_CMD_NODE_S *pstCur = pstCmdLink;
    while (pstCur != nullptr) {
        CLI_CMD_NODE_S *pstSame = CLI_MatchInBrotherCmd(pstLevel, pstCur);
        if (pstSame == nullptr) {
            return CLI_AddInBrotherCmd(pstLevel, pstCur);
        }
        if (pstSame->pfHandler == nullptr) {
            pstSame->pfHandler = pstCur->pfHandler;
        }
        CLI_CMD_NODE_S *pstRest = pstCur->pstSon;
        free(pstCur);
        pstCur = pstRest;
        if (pstSame->pstSon == nullptr) {
            pstSame->pstSon = pstCur;
            return 0;
        }
        pstLevel = pstSame->pstSon;
    }
    return 0;
}

int64_t CLI_InstallCmd(CLI_CMD_TEMPLET_S *pTotalCmdVector, int64_t lTotalElementNum,
                       const char *pcRule, CLI_CMD_HANDLER_PF pfHandleFunc)
{
    CLI_ASSERT(NULL != pTotalCmdVector);
    CLI_ASSERT(NULL != pcRule);
    CLI_ASSERT(NULL != pfHandleFunc);
    int64_t alCmdVec[CLI_TEMPLET_SIZE] = {};
    int64_t lCount = 0;
    if (CLI_CmdRuleCheck(pcRule, alCmdVec, &lCount) != 0) {
        return -1;
    }
    CLI_CMD_NODE_S *pstLink =
        CLI_GetCmdLinkFromRule(pTotalCmdVector, lTotalElementNum, alCmdVec, lCount, pfHandleFunc);
    if (pstLink == nullptr) {
        return -1;
    }
    if (CLI_InstallCmdTemplet(pstLink) != 0) {
        CLI_ASSERT(1 == 0);
    }
    return 0;
}

int64_t CLI_FreeCmdTemplet(CLI_CMD_TEMPLET_S *pCmdVector, int64_t lCount)
{
    CLI_ASSERT(NULL != pCmdVector);
    for (int64_t i = 0; i < lCount && i < CLI_TEMPLET_SIZE; i++) {
        free(pCmdVector[i]);
        pCmdVector[i] = nullptr;
    }
    free(pCmdVector);
    return 0;
}

// Brothers are walked in a loop so that a long level does not deepen the
// recursion; only the sons recurse.
void CLI_DestroyCmdTemplet(CLI_CMD_NODE_S *pstCmdNode)
{
    while (pstCmdNode != nullptr) {
        CLI_CMD_NODE_S *pstBrother = pstCmdNode->pstBrother;
        CLI_DestroyCmdTemplet(pstCmdNode->pstSon);
        tree_index_free(pstCmdNode);
        free(pstCmdNode);
        pstCmdNode = pstBrother;
    }
}

int CLI_IsdigitString(const char *pcStr)
{
    if (pcStr == nullptr) {
        return 0;
    }
    if (*pcStr == '-') {
        pcStr++;
    }
    return CLI_IsOnlydigitString(pcStr);
}

int CLI_IsOnlydigitString(const char *pcStr)
{
    if (pcStr == nullptr) {
        return 0;
    }
    for (; *pcStr != '\0'; pcStr++) {
        if (!isdigit(static_cast<unsigned char>(*pcStr))) {
            return 0;
        }
    }
    return 1;
}

uint64_t CLI_StrtoUL(const char *pcStr)
{
    return CLI_Skip_AtoI(&pcStr);
}

// Out-of-range texts saturate to the int range rather than overflow.
int64_t CLI_StrtoL(const char *pcStr)
{
    if (pcStr == nullptr) {
        return 0;
    }
    long lVal = strtol(pcStr, nullptr, 10);
    if (lVal > INT_MAX) {
        return INT_MAX;
    }
    if (lVal < INT_MIN) {
        return INT_MIN;
    }
    return lVal;
}

uint64_t CLI_Skip_AtoI(const char **ppcCur)
{
    if (ppcCur == nullptr || *ppcCur == nullptr) {
        return 0;
    }
    uint64_t ulVal = 0;
    const char *pcCur = *ppcCur;
    for (; isdigit(static_cast<unsigned char>(*pcCur)); pcCur++) {
        ulVal = ulVal * 10 + static_cast<uint64_t>(*pcCur - '0');
    }
    *ppcCur = pcCur;
    return ulVal;
}

uint64_t CLI_Skip_AtoHex(const char **ppcCur)
{
    if (ppcCur == nullptr || *ppcCur == nullptr) {
        return 0;
    }
    uint64_t ulVal = 0;
    const char *pcCur = *ppcCur;
    for (;; pcCur++) {
        char c = *pcCur;
        uint64_t ulDigit;
        if (c >= '0' && c <= '9') {
            ulDigit = static_cast<uint64_t>(c - '0');
        } else if (c >= 'a' && c <= 'f') {
            ulDigit = static_cast<uint64_t>(c - 87);
        } else if (c >= 'A' && c <= 'F') {
            ulDigit = static_cast<uint64_t>(c - 55);
        } else {
            break;
        }
        ulVal = ulVal * 16 + ulDigit;
    }
    *ppcCur = pcCur;
    return ulVal;
}

// ===========================================================================
// Line parsing, matching, parameters and dispatch
// ===========================================================================

namespace {

// A word of the line, read in place: the line is not copied into a token
// table, only the texts that leave the parser are.
struct ParseToken {
    const char *pcText;
    size_t ulLen;  // at most CLI_MAX_TOKEN_LEN - 1: the rest of a longer word is dropped
};

const char *parse_skip_spaces(const char *pcCur)
{
    while (*pcCur == ' ') {
        pcCur++;
    }
    return pcCur;
}

// Only the space separates words; a tab is an ordinary character.
bool parse_next_word(const char **ppcCur, ParseToken *pstTok)
{
    const char *pcStart = parse_skip_spaces(*ppcCur);
    const char *pcEnd = pcStart;
    while (*pcEnd != '\0' && *pcEnd != ' ') {
        pcEnd++;
    }
    *ppcCur = pcEnd;
    size_t ulLen = static_cast<size_t>(pcEnd - pcStart);
    pstTok->pcText = pcStart;
    pstTok->ulLen = ulLen < CLI_MAX_TOKEN_LEN - 1 ? ulLen : CLI_MAX_TOKEN_LEN - 1;
    return ulLen > 0;
}

// Copies a word with its terminator into a CLI_MAX_TOKEN_LEN buffer.
const char *parse_copy_word(const ParseToken &stTok, char *pcDst, bool bLower)
{
    for (size_t i = 0; i < stTok.ulLen; i++) {
        char c = stTok.pcText[i];
        // tolower of the C locale, which the tool never leaves: A-Z only.
        pcDst[i] = bLower && c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
    }
    pcDst[stTok.ulLen] = '\0';
    return pcDst;
}

// CLI_IsdigitString of a word in place.
bool parse_is_number(const ParseToken &stTok)
{
    size_t i = stTok.pcText[0] == '-' ? 1 : 0;
    for (; i < stTok.ulLen; i++) {
        if (!isdigit(static_cast<unsigned char>(stTok.pcText[i]))) {
            return false;
        }
    }
    return true;
}

// strncmp over the word's length, for keywords of a few bytes: a shorter
// keyword fails at its terminator, which no word contains.
bool parse_rest_begins(const char *pcKey, const ParseToken &stTok)
{
    for (size_t i = 1; i < stTok.ulLen; i++) {
        if (pcKey[i] != stTok.pcText[i]) {
            return false;
        }
    }
    return true;
}

bool parse_key_begins(const CLI_CMD_NODE_S *pstNode, const ParseToken &stTok)
{
    return pstNode->szKey[0] == stTok.pcText[0] && parse_rest_begins(pstNode->szKey, stTok);
}

// No keyword matched: a number prefers the integer slot, anything else
// takes the string slot.
int64_t parse_pick_slot(const ParseToken &stTok, CLI_CMD_NODE_S *const *apstSlot,
                        CLI_CMD_NODE_S **ppstMatched)
{
    CLI_CMD_NODE_S *pstSlot = apstSlot[CLI_NODE_STRING];
    if (apstSlot[CLI_NODE_INTEGER] != nullptr && parse_is_number(stTok)) {
        pstSlot = apstSlot[CLI_NODE_INTEGER];
    }
    *ppstMatched = pstSlot;
    return pstSlot != nullptr ? 0 : -1;
}

// An index is trusted only while nothing was linked behind its last node.
const CLI_LEVEL_INDEX_S *parse_level_index(const CLI_CMD_NODE_S *pstLevel)
{
    const CLI_LEVEL_INDEX_S *pstIndex = pstLevel != nullptr ? pstLevel->pstLevelIndex : nullptr;
    if (pstIndex == nullptr || pstIndex->ppstNode[pstIndex->ulCount - 1]->pstBrother != nullptr) {
        return nullptr;
    }
    return pstIndex;
}

int64_t parse_match_indexed(const ParseToken &stTok, const CLI_LEVEL_INDEX_S *pstIndex,
                            CLI_CMD_NODE_S **ppstMatched)
{
    int64_t lKeys = 0;
    const char cFirst = stTok.pcText[0];
    for (size_t i = 0; i < pstIndex->ulCount; i++) {
        if (pstIndex->pcInitial[i] == cFirst &&
            parse_rest_begins(pstIndex->ppstNode[i]->szKey, stTok)) {
            lKeys++;
            *ppstMatched = pstIndex->ppstNode[i];
        }
    }
    return lKeys > 0 ? lKeys : parse_pick_slot(stTok, pstIndex->apstSlot, ppstMatched);
}

// CLI_MatchInputInBrotherCmd in one pass over the level: keyword matches are
// counted while the first slot of each kind is noted.
int64_t parse_match(const ParseToken &stTok, CLI_CMD_NODE_S *pstLevel, CLI_CMD_NODE_S **ppstMatched)
{
    const CLI_LEVEL_INDEX_S *pstIndex = parse_level_index(pstLevel);
    if (pstIndex != nullptr) {
        return parse_match_indexed(stTok, pstIndex, ppstMatched);
    }
    int64_t lKeys = 0;
    CLI_CMD_NODE_S *apstSlot[3] = {};
    for (CLI_CMD_NODE_S *pstNode = pstLevel; pstNode != nullptr; pstNode = pstNode->pstBrother) {
        if (parse_key_begins(pstNode, stTok)) {
            lKeys++;
            *ppstMatched = pstNode;
        }
        // Only a marker begins with "<"; the kind lies in another cache line.
        if (pstNode->szKey[0] == '<' && apstSlot[pstNode->enKind] == nullptr) {
            apstSlot[pstNode->enKind] = pstNode;
        }
    }
    return lKeys > 0 ? lKeys : parse_pick_slot(stTok, apstSlot, ppstMatched);
}

CLI_CMD_NODE_S *parse_first_of_kind(CLI_CMD_NODE_S *pstLevel, CLI_NODE_KIND_E enKind)
{
    for (; pstLevel != nullptr; pstLevel = pstLevel->pstBrother) {
        if (pstLevel->enKind == enKind) {
            return pstLevel;
        }
    }
    return nullptr;
}

// "?" ends the walk with the help of the level reached so far; a tab with a
// completion at that level.
int64_t parse_help_at(const char *pcLine, const ParseToken &stTok, int64_t lTokenNum,
                      CLI_CMD_PARA_S *pstPara, CLI_CMD_NODE_S *pstLevel, bool bPrevComplete)
{
    char szToken[CLI_MAX_TOKEN_LEN];
    const char *pcToken = parse_copy_word(stTok, szToken, false);
    int64_t lRet;
    if (pcToken[stTok.ulLen - 1] == '?') {
        if (bPrevComplete && strcmp(pcToken, "?") == 0) {
            out_str("\r\n    <cr>");
        }
        lRet = CLI_PrintCmdHelpInfo(pcToken, pstPara, pstLevel);
    } else {
        lRet = CLI_ExternCmdInfo(pcToken, pstPara, pstLevel);
    }
    if (lRet != 0) {
        CLI_PrintWrongCmdPos(pcLine, pcToken, lTokenNum);
        return -1;
    }
    return 0;
}

// CLI_CMD_CHECK_PF for a node that parse_match chose: an integer slot came
// either from a number or from a word abbreviating its marker, which begins
// with "<" and is refused without troubling the validator.
bool parse_accepts(const ParseToken &stTok, const char *pcToken, CLI_CMD_PARA_S *pstPara,
                   const CLI_CMD_NODE_S *pstNode)
{
    if (pstNode->enKind == CLI_NODE_INTEGER && stTok.pcText[0] == '<') {
        return false;
    }
    if (pstNode->enKind == CLI_NODE_KEYWORD || pstNode->pfCheck == nullptr) {
        return true;
    }
    out_flush();  // a validator prints its own refusal
    return pstNode->pfCheck(pcToken, pstPara) == 0;
}

// One word against the current level: matched, validated and recorded.
// Prints the pointer and returns false when the line cannot go on.
bool parse_step(const char *pcLine, const ParseToken &stTok, int64_t lTokenNum,
                CLI_CMD_PARA_S *pstPara, CLI_CMD_NODE_S *pstLevel, CLI_CMD_NODE_S **ppstMatched)
{
    int64_t lMatch = parse_match(stTok, pstLevel, ppstMatched);
    if (lMatch != 0 && lMatch != 1) {
        if (lMatch < 0) {
            CLI_PrintWrongCmdPos(pcLine, stTok.pcText, lTokenNum);
        } else {
            CLI_PrintAmbiguousCmdPos(pcLine, stTok.pcText, lTokenNum);
        }
        return false;
    }
    CLI_CMD_NODE_S *pstNode = *ppstMatched;
    bool bKeyword = pstNode->szKey[0] != '<' || pstNode->enKind == CLI_NODE_KEYWORD;
    if (bKeyword && pstNode->ulParaId == CLI_PARA_NONE) {
        return true;  // nothing to check, nothing to record
    }
    // The text goes straight into the record's next entry, where the
    // validator reads it; recording then only counts it. A line holds at
    // most CLI_MAX_TOKEN_NUM words, so the entry exists.
    CLI_CMD_PARA_ENTRY_S *pstEntry = &pstPara->astPara[pstPara->ulParaLen];
    const char *pcToken = parse_copy_word(stTok, pstEntry->szPara, false);
    if (!parse_accepts(stTok, pcToken, pstPara, pstNode)) {
        CLI_PrintWrongCmdPos(pcLine, pcToken, lTokenNum);
        return false;
    }
    if (pstNode->ulParaId != CLI_PARA_NONE) {
        pstEntry->pstNode = pstNode;
        pstPara->ulParaLen++;
    }
    return true;
}

int64_t parse_line(const char *pcLineBuf, uint64_t ulLanguage)
{
    // Accessors read only the first ulParaLen entries: the rest stays as is.
    CLI_CMD_PARA_S stPara;
    stPara.ulRsv = 0;
    stPara.ulLanguage = ulLanguage;
    stPara.ulParaLen = 0;
    const char *pcCur = pcLineBuf;
    ParseToken stTok;
    char szFirst[CLI_MAX_TOKEN_LEN];
    if (!parse_next_word(&pcCur, &stTok)) {
        return 0;
    }
    stTok.pcText = parse_copy_word(stTok, szFirst, true);  // only the first word is lower-cased
    CLI_CMD_NODE_S *pstLevel = gpstCmdTempletRoot;
    CLI_CMD_NODE_S *pstMatched = nullptr;
    bool bPrevComplete = false;
    for (int64_t i = 0; i < CLI_MAX_TOKEN_NUM && (i == 0 || parse_next_word(&pcCur, &stTok)); i++) {
        char cLast = stTok.pcText[stTok.ulLen - 1];
        if (cLast == '?' || cLast == '\t') {
            return parse_help_at(pcLineBuf, stTok, i, &stPara, pstLevel, bPrevComplete);
        }
        if (!parse_step(pcLineBuf, stTok, i, &stPara, pstLevel, &pstMatched)) {
            return -1;
        }
        bPrevComplete = CLI_IsCompleteCmdLine(pstMatched) != 0;
        pstLevel = pstMatched->pstSon;
    }
    if (!CLI_IsCompleteCmdLine(pstMatched)) {
        CLI_PrintInCompleteCmd(pcLineBuf);
        return 0;
    }
    CLI_ExecCmdHandleFunc(pstMatched, &stPara);
    return 0;
}

}  // namespace

int64_t CLI_GetCmdArg(const char *pcLineBuf, char (*pcArgv)[CLI_MAX_TOKEN_LEN], int64_t *plArgc)
{
    CLI_ASSERT(NULL != pcLineBuf);
    CLI_ASSERT(NULL != pcArgv);
    CLI_ASSERT(NULL != plArgc);
    int64_t lArgc = 0;
    ParseToken stTok;
    // Words after the table is full are read past and dropped.
    for (const char *pcCur = pcLineBuf; parse_next_word(&pcCur, &stTok);) {
        if (lArgc < CLI_MAX_TOKEN_NUM) {
            parse_copy_word(stTok, pcArgv[lArgc], lArgc == 0);
            lArgc++;
        }
    }
    *plArgc = lArgc;
    return 0;
}

int64_t CLI_MainProcess(char *pcLineBuf, uint64_t ulLanguage)
{
    OutPiece stPiece;
    return parse_line(pcLineBuf, ulLanguage);
}

// Keywords win over parameter slots; a digit string prefers "<Integer>".
int64_t CLI_MatchInputInBrotherCmd(const char *pcToken, CLI_CMD_NODE_S *pstLevel,
                                   CLI_CMD_NODE_S **ppstMatched)
{
    if (pcToken == nullptr || pstLevel == nullptr || ppstMatched == nullptr || *pcToken == '\0') {
        return -1;
    }
    size_t ulLen = strlen(pcToken);
    ParseToken stTok = {pcToken, ulLen < CLI_MAX_TOKEN_LEN ? ulLen : CLI_MAX_TOKEN_LEN - 1};
    return parse_match(stTok, pstLevel, ppstMatched);
}

int64_t CLI_MatchCmdKeyInBrotherCmd(CLI_CMD_NODE_S *pstLevel, const char *pcToken,
                                    CLI_CMD_NODE_S **ppstMatched)
{
    if (pcToken == nullptr) {
        return 0;
    }
    size_t ulLen = strlen(pcToken);
    int64_t lCount = 0;
    for (; pstLevel != nullptr; pstLevel = pstLevel->pstBrother) {
        if (strncmp(pstLevel->szKey, pcToken, ulLen) == 0) {
            lCount++;
            if (ppstMatched != nullptr) {
                *ppstMatched = pstLevel;
            }
        }
    }
    return lCount;
}

int64_t CLI_MatchIntegerInBrotherCmd(CLI_CMD_NODE_S *pstLevel, CLI_CMD_NODE_S **ppstMatched)
{
    CLI_CMD_NODE_S *pstNode = parse_first_of_kind(pstLevel, CLI_NODE_INTEGER);
    if (ppstMatched != nullptr) {
        *ppstMatched = pstNode;
    }
    return pstNode != nullptr ? 0 : -1;
}

int64_t CLI_MatchStringInBrotherCmd(CLI_CMD_NODE_S *pstLevel, CLI_CMD_NODE_S **ppstMatched)
{
    CLI_CMD_NODE_S *pstNode = parse_first_of_kind(pstLevel, CLI_NODE_STRING);
    if (ppstMatched != nullptr) {
        *ppstMatched = pstNode;
    }
    return pstNode != nullptr ? 0 : -1;
}

// A token that abbreviates "<Integer>" itself can select the slot; it is not
// a number, so it is refused here without troubling the validator.
int64_t CLI_CheckCmdArg(const char *pcToken, CLI_CMD_PARA_S *pstCmdPara, CLI_CMD_NODE_S *pstNode)
{
    if (pcToken == nullptr || pstNode == nullptr) {
        return -1;
    }
    if (pstNode->enKind == CLI_NODE_KEYWORD) {
        return 0;
    }
    if (pstNode->enKind == CLI_NODE_INTEGER && !CLI_IsdigitString(pcToken)) {
        return -1;
    }
    if (pstNode->pfCheck == nullptr) {
        return 0;
    }
    out_flush();  // a validator prints its own refusal
    return static_cast<int64_t>(pstNode->pfCheck(pcToken, pstCmdPara));
}

int64_t CLI_RecordCmdPara(CLI_CMD_NODE_S *pstNode, CLI_CMD_PARA_S *pstCmdPara, const char *pcToken)
{
    if (pstNode == nullptr || pstCmdPara == nullptr || pcToken == nullptr) {
        return -1;
    }
    if (pstNode->ulParaId == CLI_PARA_NONE) {
        return 0;
    }
    if (pstCmdPara->ulParaLen >= CLI_MAX_TOKEN_NUM) {
        return -1;
    }
    CLI_CMD_PARA_ENTRY_S *pstEntry = &pstCmdPara->astPara[pstCmdPara->ulParaLen++];
    tree_copy_text(pstEntry->szPara, sizeof(pstEntry->szPara), pcToken);
    pstEntry->pstNode = pstNode;
    return 0;
}

int CLI_IsCompleteCmdLine(const CLI_CMD_NODE_S *pstNode)
{
    if (pstNode == nullptr) {
        return 0;
    }
    return pstNode->pfHandler != nullptr || pstNode->pstSon == nullptr;
}

int64_t CLI_ExecCmdHandleFunc(CLI_CMD_NODE_S *pstCmdNode, CLI_CMD_PARA_S *pstCmdParaInfo)
{
    CLI_ASSERT(NULL != pstCmdNode);
    CLI_ASSERT(NULL != pstCmdParaInfo);
    if (pstCmdNode->pfHandler == nullptr) {
        return 0;
    }
    OutPiece stPiece;
    out_str("\r\n@");
    // What the handler prints before it waits must already follow the "@".
    out_flush();
    uint64_t ulRet = pstCmdNode->pfHandler(pstCmdParaInfo);
    out_str(ulRet != 0 ? "\r\ntest result:fail\r\n$$" : "\r\ntest result:pass\r\n$$");
    return 0;
}

int64_t CLI_GetAllParaNum(CLI_CMD_PARA_S *pstCmdPara, uint64_t *pulParaNum)
{
    CLI_ASSERT(NULL != pstCmdPara);
    CLI_ASSERT(NULL != pulParaNum);
    *pulParaNum = pstCmdPara->ulParaLen;
    return 0;
}

// In the accessors below the parameter number is compared unsigned, so that
// a negative number fails the same check as one beyond the record.
int64_t CLI_GetUlongValuePara(CLI_CMD_PARA_S *pCmdPara, int64_t lSeq, uint64_t *pulRetVal)
{
    CLI_ASSERT(NULL != pCmdPara);
    CLI_ASSERT(NULL != pulRetVal);
    const CLI_CMD_PARA_S *pstCmdRecordInfo = pCmdPara;
    const uint64_t lCmdParaSeq = static_cast<uint64_t>(lSeq);
    CLI_ASSERT(pstCmdRecordInfo->ulParaLen > lCmdParaSeq);
    if (lCmdParaSeq >= CLI_MAX_TOKEN_NUM) {
        return -1;
    }
    const CLI_CMD_PARA_ENTRY_S *pstEntry = &pCmdPara->astPara[lCmdParaSeq];
    if (pstEntry->pstNode->ulHasValue != 0) {
        *pulRetVal = pstEntry->pstNode->ulValue;
        return 0;
    }
    if (pstEntry->pstNode->enKind != CLI_NODE_INTEGER) {
        return -1;
    }
    *pulRetVal = CLI_StrtoUL(pstEntry->szPara);
    return 0;
}

int64_t CLI_GetOctStringPara(CLI_CMD_PARA_S *pCmdPara, int64_t lSeq, char *pcDst)
{
    CLI_ASSERT(NULL != pCmdPara);
    const CLI_CMD_PARA_S *pstCmdRecordInfo = pCmdPara;
    const uint64_t lCmdParaSeq = static_cast<uint64_t>(lSeq);
    CLI_ASSERT(pstCmdRecordInfo->ulParaLen > lCmdParaSeq);
    if (lCmdParaSeq >= CLI_MAX_TOKEN_NUM || pcDst == nullptr) {
        return -1;
    }
    const CLI_CMD_PARA_ENTRY_S *pstEntry = &pCmdPara->astPara[lCmdParaSeq];
    if (pstEntry->pstNode->enKind != CLI_NODE_STRING) {
        return -1;
    }
    tree_copy_text(pcDst, CLI_MAX_TOKEN_LEN, pstEntry->szPara);
    return 0;
}

int64_t CLI_GetParaOID(CLI_CMD_PARA_S *pCmdPara, int64_t lSeq, uint64_t *pulCmdCMO)
{
    CLI_ASSERT(NULL != pCmdPara);
    CLI_ASSERT(NULL != pulCmdCMO);
    const CLI_CMD_PARA_S *pstCmdRecordInfo = pCmdPara;
    const uint64_t lCmdParaSeq = static_cast<uint64_t>(lSeq);
    CLI_ASSERT(pstCmdRecordInfo->ulParaLen > lCmdParaSeq);
    if (lCmdParaSeq >= CLI_MAX_TOKEN_NUM) {
        return -1;
    }
    *pulCmdCMO = pCmdPara->astPara[lCmdParaSeq].pstNode->ulParaId;
    return 0;
}

// ===========================================================================
// Help, completion lists and error pointers
// ===========================================================================

namespace {

bool help_is_any_marker(const CLI_CMD_NODE_S *pstNode)
{
    return pstNode->enKind != CLI_NODE_KEYWORD;
}

// The length of the token without its trailing "?" or tab: the prefix is
// compared in place, over that length, never copied.
size_t help_prefix_len(const char *pcToken)
{
    size_t ulLen = strnlen(pcToken, CLI_MAX_TOKEN_LEN - 1);
    return ulLen > 0 ? ulLen - 1 : 0;
}

bool help_begins_with(const CLI_CMD_NODE_S *pstNode, const char *pcPrefix, size_t ulLen)
{
    return strncmp(pstNode->szKey, pcPrefix, ulLen) == 0;
}

// The keyword padded to 15 columns (a longer one is not cut), then the text.
void help_print_line(const char *pcKey, const char *pcHelp)
{
    pcKey = pcKey != nullptr ? pcKey : "";
    size_t ulKeyLen = strlen(pcKey);
    out_put("\r\n    ", 6);
    out_put(pcKey, ulKeyLen);
    out_blanks(ulKeyLen < 15 ? 15 - ulKeyLen : 0);
    out_str(pcHelp != nullptr ? pcHelp : "");
}

bool help_in_english(const CLI_CMD_PARA_S *pstCmdPara)
{
    return pstCmdPara == nullptr || pstCmdPara->ulLanguage != 0;
}

// A node is shown with its help row: the row's keyword may be a description
// of the slot ("tx port num") rather than the word itself.
void help_print_node(const CLI_CMD_NODE_S *pstNode, const CLI_CMD_PARA_S *pstCmdPara)
{
    const EQU_KEY_HELP_INFO_S *pstRow = &pstNode->pstHelpTbl[pstNode->ulHelpIdx];
    const char *pcKey = pstRow->pcKey != nullptr ? pstRow->pcKey : pstNode->szKey;
    help_print_line(pcKey, help_in_english(pstCmdPara) ? pstRow->pcHelpEn : pstRow->pcHelpCh);
}

void help_print_generated(const char *pcToken, CLI_CMD_PARA_S *pstCmdPara,
                          const CLI_CMD_NODE_S *pstNode)
{
    CLI_HELP_VECTOR_S stHead = {};
    out_flush();  // a generator may print
    pstNode->pfHelpGen(pcToken, pstCmdPara, &stHead);
    bool bEnglish = help_in_english(pstCmdPara);
    for (const CLI_HELP_VECTOR_S *pstEntry = stHead.pstNext; pstEntry != nullptr;
         pstEntry = pstEntry->pstNext) {
        help_print_line(pstEntry->pcKey, bEnglish ? pstEntry->pcHelpEn : pstEntry->pcHelpCh);
    }
    CLI_FreeHelpVector(&stHead);
}

// Rewrites the typed prefix (and the tab after it) at the end of the line
// buffer with the whole keyword and a blank, all inside the buffer.
void help_complete_word(const CLI_CMD_NODE_S *pstNode, size_t ulPrefixLen)
{
    size_t ulLineLen = strnlen(gszLineBuf, sizeof(gszLineBuf) - 1);
    if (ulLineLen < ulPrefixLen + 1) {
        return;
    }
    size_t ulStart = ulLineLen - ulPrefixLen - 1;
    size_t ulKeyLen = strnlen(pstNode->szKey, sizeof(gszLineBuf) - ulStart - 1);
    memcpy(gszLineBuf + ulStart, pstNode->szKey, ulKeyLen);
    size_t ulBlank = ulStart + ulKeyLen;
    if (ulBlank > sizeof(gszLineBuf) - 2) {
        ulBlank = sizeof(gszLineBuf) - 2;
    }
    gszLineBuf[ulBlank] = ' ';
    gszLineBuf[ulBlank + 1] = '\0';
    gbAutoFixed = 1;
}

// Counts the level's keywords that begin with the prefix, stopping at two,
// and keeps the first. The level's index narrows them to one initial.
size_t help_first_two_matches(const CLI_CMD_NODE_S *pstLevel, const char *pcPrefix, size_t ulLen,
                              const CLI_CMD_NODE_S **ppstFirst)
{
    const CLI_LEVEL_INDEX_S *pstIndex = parse_level_index(pstLevel);
    size_t ulMatches = 0;
    if (pstIndex != nullptr && ulLen > 0) {
        const ParseToken stTok = {pcPrefix, ulLen};
        for (size_t i = 0; i < pstIndex->ulCount && ulMatches < 2; i++) {
            if (pstIndex->pcInitial[i] == pcPrefix[0] &&
                parse_rest_begins(pstIndex->ppstNode[i]->szKey, stTok)) {
                *ppstFirst = ulMatches++ == 0 ? pstIndex->ppstNode[i] : *ppstFirst;
            }
        }
        return ulMatches;
    }
    for (; pstLevel != nullptr && ulMatches < 2; pstLevel = pstLevel->pstBrother) {
        if (help_begins_with(pstLevel, pcPrefix, ulLen)) {
            *ppstFirst = ulMatches++ == 0 ? pstLevel : *ppstFirst;
        }
    }
    return ulMatches;
}

bool help_has_marker(const CLI_CMD_NODE_S *pstLevel)
{
    const CLI_LEVEL_INDEX_S *pstIndex = parse_level_index(pstLevel);
    if (pstIndex != nullptr) {
        return pstIndex->apstSlot[CLI_NODE_INTEGER] != nullptr ||
               pstIndex->apstSlot[CLI_NODE_STRING] != nullptr;
    }
    for (; pstLevel != nullptr; pstLevel = pstLevel->pstBrother) {
        if (help_is_any_marker(pstLevel)) {
            return true;
        }
    }
    return false;
}

void help_print_matches(const CLI_CMD_NODE_S *pstFrom, const char *pcPrefix, size_t ulLen)
{
    for (; pstFrom != nullptr; pstFrom = pstFrom->pstBrother) {
        if (help_begins_with(pstFrom, pcPrefix, ulLen)) {
            out_put("    ", 4);
            out_str(pstFrom->szKey);
        }
    }
}

// Caret lines start under the typed line, past the prompt.
void help_pointer_lead(size_t ulColumns)
{
    out_put("\r\n  ", 4);
    out_blanks(strlen(gszSysPrompt) + ulColumns);
}

bool help_is_word_gap(char c)
{
    return c == ' ' || c == '\t';
}

const char *help_skip_gap(const char *pcCur)
{
    while (help_is_word_gap(*pcCur)) {
        pcCur++;
    }
    return pcCur;
}

const char *help_skip_word(const char *pcCur)
{
    while (*pcCur != '\0' && !help_is_word_gap(*pcCur)) {
        pcCur++;
    }
    return pcCur;
}

}  // namespace

int64_t CLI_PrintCmdHelpInfo(const char *pcToken, CLI_CMD_PARA_S *pstCmdPara,
                             CLI_CMD_NODE_S *pstLevel)
{
    OutPiece stPiece;
    if (pcToken == nullptr) {
        return -1;
    }
    if (pcToken[0] == '?') {
        return CLI_PrintCmdCompleteHelpInfo(pcToken, pstCmdPara, pstLevel);
    }
    return CLI_PrintCmdPartHelpInfo(pcToken, pstCmdPara, pstLevel);
}

int64_t CLI_ExternCmdInfo(const char *pcToken, CLI_CMD_PARA_S *pstCmdPara, CLI_CMD_NODE_S *pstLevel)
{
    OutPiece stPiece;
    if (pcToken == nullptr) {
        return -1;
    }
    if (pcToken[0] == '\t') {
        return CLI_PrintCmdCompleteHelpInfo(pcToken, pstCmdPara, pstLevel);
    }
    return CLI_PrintExternCmdPart(pcToken, pstCmdPara, pstLevel);
}

// A help generator is asked only when the level offers a single word.
int64_t CLI_PrintCmdCompleteHelpInfo(const char *pcToken, CLI_CMD_PARA_S *pstCmdPara,
                                     CLI_CMD_NODE_S *pstLevel)
{
    OutPiece stPiece;
    if (pcToken == nullptr) {
        return -1;
    }
    if (pstLevel == nullptr) {
        return 0;
    }
    if (pstLevel->pstBrother == nullptr && pstLevel->pfHelpGen != nullptr) {
        help_print_generated(pcToken, pstCmdPara, pstLevel);
        return 0;
    }
    for (; pstLevel != nullptr; pstLevel = pstLevel->pstBrother) {
        help_print_node(pstLevel, pstCmdPara);
    }
    return 0;
}

// A lone slot accepts any prefix only when it is "<String>": the integer
// text compared here carries a stray ")" and so never equals its marker, and
// a number followed by "?" is answered as a wrong word. Operators know it so.
int64_t CLI_PrintCmdPartHelpInfo(const char *pcToken, CLI_CMD_PARA_S *pstCmdPara,
                                 CLI_CMD_NODE_S *pstLevel)
{
    OutPiece stPiece;
    if (pcToken == nullptr || pstLevel == nullptr) {
        return -1;
    }
    size_t ulLen = help_prefix_len(pcToken);
    if (pstLevel->pstBrother == nullptr) {
        if (!help_begins_with(pstLevel, pcToken, ulLen) && pstLevel->enKind != CLI_NODE_STRING &&
            strcmp(pstLevel->szKey, "<Integer>)") != 0) {
            return -1;
        }
        if (pstLevel->pfHelpGen != nullptr) {
            help_print_generated(pcToken, pstCmdPara, pstLevel);
        } else {
            out_put("\r\n    ", 6);
            out_str(pstLevel->szKey);
        }
        return 0;
    }
    bool bAny = false;
    for (; pstLevel != nullptr; pstLevel = pstLevel->pstBrother) {
        if (help_begins_with(pstLevel, pcToken, ulLen)) {
            if (!bAny) {
                out_put("\r\n", 2);
            }
            bAny = true;
            out_put("    ", 4);
            out_str(pstLevel->szKey);
        }
    }
    return bAny ? 0 : -1;
}

int64_t CLI_PrintExternCmdPart(const char *pcToken, CLI_CMD_PARA_S *pstCmdPara,
                               CLI_CMD_NODE_S *pstLevel)
{
    OutPiece stPiece;
    (void)pstCmdPara;
    if (pcToken == nullptr || pstLevel == nullptr) {
        return -1;
    }
    size_t ulLen = help_prefix_len(pcToken);
    const CLI_CMD_NODE_S *pstFirst = nullptr;
    size_t ulMatches = help_first_two_matches(pstLevel, pcToken, ulLen, &pstFirst);
    if (ulMatches == 0) {
        // A parameter is expected: the operator goes on typing.
        return help_has_marker(pstLevel) ? 0 : -1;
    }
    if (ulMatches == 1) {
        help_complete_word(pstFirst, ulLen);
        return 0;
    }
    out_put("\r\n", 2);
    help_print_matches(pstFirst, pcToken, ulLen);
    return 0;
}

int64_t CLI_PrintWrongCmdPos(const char *pcLine, const char *pcToken, int64_t lTokenNum)
{
    OutPiece stPiece;
    (void)pcToken;
    if (pcLine == nullptr) {
        return -1;
    }
    const char *pcCur = help_skip_gap(pcLine);
    for (int64_t lWord = 0; lWord < lTokenNum && *pcCur != '\0'; lWord++) {
        pcCur = help_skip_gap(help_skip_word(pcCur));
    }
    help_pointer_lead(static_cast<size_t>(pcCur - pcLine));
    out_str(genLanguage != 0 ? "^\r\nWrong Command Input!" : "^\r\n输入错误!");
    return 0;
}

// The caret stops right after word n-1, one column later than the wrong-word
// caret would; for word 0 it goes past the end of the line.
int64_t CLI_PrintAmbiguousCmdPos(const char *pcLine, const char *pcToken, int64_t lTokenNum)
{
    OutPiece stPiece;
    (void)pcToken;
    if (pcLine == nullptr) {
        return -1;
    }
    const char *pcCur = help_skip_gap(pcLine);
    int64_t lWord = 0;
    while (*pcCur != '\0') {
        pcCur = help_skip_word(pcCur);
        if (++lWord == lTokenNum) {
            break;
        }
        pcCur = help_skip_gap(pcCur);
    }
    help_pointer_lead(static_cast<size_t>(pcCur - pcLine));
    out_str(genLanguage != 0 ? " ^\r\nAmbiguous Command Input!" : " ^\r\n命令不明确!");
    return 0;
}

int64_t CLI_PrintInCompleteCmd(const char *pcLine)
{
    OutPiece stPiece;
    if (pcLine == nullptr) {
        return -1;
    }
    help_pointer_lead(strlen(pcLine));
    out_str(genLanguage != 0 ? " ^\r\nInComplete Command Input!" : " ^\r\n命令不完整!");
    return 0;
}

// Frees the entries hung on the head; the head is the caller's and the texts
// are static.
void CLI_FreeHelpVector(CLI_HELP_VECTOR_S *pstHead)
{
    if (pstHead == nullptr) {
        return;
    }
    CLI_HELP_VECTOR_S *pstEntry = pstHead->pstNext;
    while (pstEntry != nullptr) {
        CLI_HELP_VECTOR_S *pstNext = pstEntry->pstNext;
        free(pstEntry);
        pstEntry = pstNext;
    }
    pstHead->pstNext = nullptr;
}

// ===========================================================================
// Line editor, history and the interactive loop
// ===========================================================================

// The interactive loop: raw terminal, user and equipment modes, line
// editor and history ring. Owns standard input (termios) for the life of the
// tool and starts the LED worker once.

int64_t glCursor = 0;
char *gapcHistoryCmd[CLI_HISTORY_NUM] = {};
uint64_t gulHistorySavePosition = 0;
uint64_t gulHistoryShowPosition = 0;

namespace {

constexpr int kEdMaxLine = CLI_LINE_BUF_LEN - 1;  // characters a line may hold

// Keys the editor acts on.
enum EdKey : int {
    ED_KEY_BACKSPACE = 8,
    ED_KEY_TAB = 9,
    ED_KEY_ENTER = 13,
    ED_KEY_ESC = 27,
    ED_KEY_HELP = '?',
    ED_KEY_DELETE = 127,
};

// Line being edited by CLI_Getline; the cursor and history functions take no
// arguments and work on it.
char *g_pcEdLine = gszLineBuf;
size_t g_ulEdLen = 0;
// Last character of an escape sequence's number part; kept across keys for
// the whole line, so that after a key ending in "~" the arrows stay dead
// until the line ends.
int g_iEdEscTail = 0;

// Attributes to put back on every way out, also from a fatal signal.
struct termios g_stEdSavedTerm;
volatile sig_atomic_t g_bEdTermSaved = 0;
bool g_bLedWorkerStarted = false;

void hist_step(uint64_t *pulPos, uint64_t ulBy)
{
    *pulPos = (*pulPos + ulBy) % CLI_HISTORY_NUM;
}

// Only async-signal-safe calls: put the terminal back, then die of the same
// signal (the handler was reset on entry) so the parent sees what happened.
// A coverage build also writes its counters, which a signalled death skips;
// that call is not signal-safe, which a measuring build accepts.
void ed_on_fatal_signal(int iSig)
{
    if (g_bEdTermSaved) {
        (void)tcsetattr(STDIN_FILENO, TCSANOW, &g_stEdSavedTerm);
    }
#ifdef CLI_COVERAGE
    __gcov_dump();
#endif
    (void)raise(iSig);
}

void ed_install_restore_handlers(void)
{
    struct sigaction stAct;
    memset(&stAct, 0, sizeof(stAct));
    stAct.sa_handler = ed_on_fatal_signal;
    stAct.sa_flags = SA_RESETHAND;
    sigemptyset(&stAct.sa_mask);
    for (int iSig : {SIGTERM, SIGHUP, SIGINT, SIGQUIT}) {
        (void)sigaction(iSig, &stAct, nullptr);
    }
}

int ed_restore_terminal(void)
{
    return tcsetattr(STDIN_FILENO, TCSANOW, &g_stEdSavedTerm);
}

void ed_destroy_tree(void)
{
    if (gpstCmdTempletRoot != nullptr) {
        CLI_DestroyCmdTemplet(gpstCmdTempletRoot);
        gpstCmdTempletRoot = nullptr;
    }
}

// Blocking read of one key; EOF only when input has ended for good. All
// that is to be seen before the key is written first.
int ed_read_key(void)
{
    out_flush();
    fflush(stdout);
    for (;;) {
        int iKey = getc(stdin);
        if (iKey != EOF) {
            return iKey;
        }
        if (ferror(stdin) && errno == EINTR) {
            clearerr(stdin);
            continue;
        }
        return EOF;
    }
}

size_t ed_insert_pos(void)
{
    return static_cast<size_t>(static_cast<int64_t>(g_ulEdLen) + glCursor);
}

// Refuses a key once the line is full, taking its echo back.
bool ed_line_full(bool bEchoed)
{
    if (g_ulEdLen < static_cast<size_t>(kEdMaxLine)) {
        return false;
    }
    if (bEchoed) {
        if (glCursor == 0) {
            out_str("\b \b");
        } else {
            const char acTakeBack[] = {'\b', g_pcEdLine[ed_insert_pos()], '\b'};
            out_put(acTakeBack, sizeof(acTakeBack));
        }
    }
    return true;
}

// Stores a key at the insertion point; the part right of the cursor moves
// one place right and is shown again.
bool ed_store_key(char cKey, bool bEcho)
{
    if (bEcho) {
        out_char(cKey);
    }
    if (ed_line_full(bEcho)) {
        return false;
    }
    size_t ulPos = ed_insert_pos();
    char acScratch[CLI_LINE_BUF_LEN];
    size_t ulTail = g_ulEdLen - ulPos;
    memcpy(acScratch, g_pcEdLine + ulPos, ulTail);
    g_pcEdLine[ulPos] = cKey;
    memcpy(g_pcEdLine + ulPos + 1, acScratch, ulTail);
    g_ulEdLen++;
    g_pcEdLine[g_ulEdLen] = '\0';
    if (glCursor != 0) {
        CLI_RewriteToEnd();
    }
    return true;
}

void ed_backspace(void)
{
    if (glCursor == 0) {
        if (g_ulEdLen > 0) {
            g_pcEdLine[--g_ulEdLen] = '\0';
            out_str("\b \b");
        }
        return;
    }
    size_t ulPos = ed_insert_pos();
    if (ulPos == 0) {
        return;
    }
    out_char('\b');
    out_str(g_pcEdLine + ulPos);
    out_char(' ');
    memmove(g_pcEdLine + ulPos - 1, g_pcEdLine + ulPos, g_ulEdLen - ulPos + 1);
    g_ulEdLen--;
    out_int("\033[", static_cast<int>(-glCursor + 1), "D");
}

// Tab and "?" end the line once stored: the pushed-back carriage return is
// read as Enter, and the parser finds the marker at the line's end.
void ed_help_key(void)
{
    if (ed_store_key(ED_KEY_HELP, true)) {
        (void)ungetc(ED_KEY_ENTER, stdin);
    }
}

void ed_tab_key(void)
{
    if (glCursor == 0 && ed_store_key(ED_KEY_TAB, false)) {
        (void)ungetc(ED_KEY_ENTER, stdin);
    }
}

void ed_recall(const char *pcText)
{
    if (pcText == nullptr) {
        return;
    }
    CLI_ShowHistroyCmd(pcText);
    snprintf(g_pcEdLine, CLI_LINE_BUF_LEN, "%s", pcText);
    g_ulEdLen = strlen(g_pcEdLine);
    // The cursor keeps its offset, but never reaches left of the line.
    if (-glCursor > static_cast<int64_t>(g_ulEdLen)) {
        glCursor = -static_cast<int64_t>(g_ulEdLen);
    }
}

void ed_escape(void)
{
    int iKey = CLI_NoWaitGetChar();
    if (iKey == '[' || iKey == 'O') {
        iKey = CLI_NoWaitGetChar();
    }
    if (iKey >= '1' && iKey <= '9') {
        g_iEdEscTail = CLI_NoWaitGetChar();
    }
    if (g_iEdEscTail >= '0' && g_iEdEscTail <= '9') {
        (void)CLI_NoWaitGetChar();
        return;
    }
    if (g_iEdEscTail == '~') {
        return;
    }
    switch (iKey) {
    case 'A':
        ed_recall(CLI_GetHistroyCmdPre());
        break;
    case 'B':
        ed_recall(CLI_GetHistroyCmdNext());
        break;
    case 'C':
        CLI_input_forward();
        break;
    case 'D':
        CLI_input_backward();
        break;
    default:
        break;
    }
}

}  // namespace

// ---- history ring ----

void CLI_SaveHistroyCmd(const char *pcLine)
{
    gulHistoryShowPosition = gulHistorySavePosition;
    size_t ulLen = strlen(pcLine);
    if (ulLen == 0 || pcLine[ulLen - 1] == ED_KEY_HELP || pcLine[ulLen - 1] == ED_KEY_TAB) {
        return;
    }
    uint64_t ulLast = gulHistorySavePosition;
    hist_step(&ulLast, CLI_HISTORY_NUM - 1);
    if (gapcHistoryCmd[ulLast] != nullptr && strcmp(gapcHistoryCmd[ulLast], pcLine) == 0) {
        return;
    }
    free(gapcHistoryCmd[gulHistorySavePosition]);
    gapcHistoryCmd[gulHistorySavePosition] = strdup(pcLine);
    if (gapcHistoryCmd[gulHistorySavePosition] == nullptr) {
        return;
    }
    hist_step(&gulHistorySavePosition, 1);
    gulHistoryShowPosition = gulHistorySavePosition;
}

const char *CLI_GetHistroyCmdPre(void)
{
    for (;;) {
        hist_step(&gulHistoryShowPosition, CLI_HISTORY_NUM - 1);
        if (gulHistoryShowPosition == gulHistorySavePosition) {
            gulHistoryShowPosition = (gulHistorySavePosition + 1) % CLI_HISTORY_NUM;
            return nullptr;
        }
        if (gapcHistoryCmd[gulHistoryShowPosition] != nullptr) {
            return gapcHistoryCmd[gulHistoryShowPosition];
        }
    }
}

const char *CLI_GetHistroyCmdNext(void)
{
    for (;;) {
        hist_step(&gulHistoryShowPosition, 1);
        if (gulHistoryShowPosition == gulHistorySavePosition) {
            gulHistoryShowPosition =
                (gulHistorySavePosition + CLI_HISTORY_NUM - 1) % CLI_HISTORY_NUM;
            return nullptr;
        }
        if (gapcHistoryCmd[gulHistoryShowPosition] != nullptr) {
            return gapcHistoryCmd[gulHistoryShowPosition];
        }
    }
}

// Blanks out the line shown after the prompt, then shows the recalled text.
void CLI_ShowHistroyCmd(const char *pcText)
{
    OutPiece stPiece;
    out_char('\r');
    out_str(gszSysPrompt);
    out_blanks(g_ulEdLen);
    out_char('\r');
    out_str(gszSysPrompt);
    out_str(pcText);
}

// ---- cursor ----

void CLI_input_forward(void)
{
    OutPiece stPiece;
    glCursor++;
    if (glCursor > 0) {
        glCursor = 0;
        return;
    }
    // Printing the character passed over moves the terminal cursor right.
    out_char(g_pcEdLine[ed_insert_pos() - 1]);
}

void CLI_input_backward(void)
{
    OutPiece stPiece;
    glCursor--;
    if (-glCursor > static_cast<int64_t>(g_ulEdLen)) {
        glCursor = -static_cast<int64_t>(g_ulEdLen);
        return;
    }
    out_str("\033[1D");
}

void CLI_RewriteToEnd(void)
{
    OutPiece stPiece;
    out_str(g_pcEdLine + ed_insert_pos());
    out_int("\033[", static_cast<int>(-glCursor), "D");
}

unsigned char CLI_NoWaitGetChar(void)
{
    int iFlags = fcntl(STDIN_FILENO, F_GETFL);
    if (iFlags < 0 || fcntl(STDIN_FILENO, F_SETFL, iFlags | O_NONBLOCK) < 0) {
        return 0;
    }
    int iKey = getc(stdin);
    if (iKey == EOF) {
        // Nothing waiting is not the end of input: the next blocking read
        // must go to the terminal again.
        clearerr(stdin);
    }
    if (fcntl(STDIN_FILENO, F_SETFL, iFlags) < 0) {
        return 0;
    }
    return static_cast<unsigned char>(iKey);
}

// ---- line editor ----

namespace {

void ed_begin_line(char *pcLineBuf)
{
    g_pcEdLine = pcLineBuf;
    g_ulEdLen = strnlen(pcLineBuf, kEdMaxLine);
    pcLineBuf[g_ulEdLen] = '\0';
    g_iEdEscTail = 0;
    if (glCursor > 0 || -glCursor > static_cast<int64_t>(g_ulEdLen)) {
        glCursor = 0;
    }
}

}  // namespace

// Continues after whatever the buffer already holds. Returns 0 once a line
// is complete, -1 when input has ended (the caller leaves as on "quit").
int64_t CLI_Getline(char *pcLineBuf)
{
    OutPiece stPiece;
    ed_begin_line(pcLineBuf);
    int64_t lRet = 0;
    for (bool bDone = false; !bDone;) {
        int iKey = ed_read_key();
        switch (iKey) {
        case EOF:
            lRet = -1;
            bDone = true;
            break;
        case ED_KEY_ENTER:
            bDone = true;
            break;
        case ED_KEY_BACKSPACE:
        case ED_KEY_DELETE:
            ed_backspace();
            break;
        case ED_KEY_TAB:
            ed_tab_key();
            break;
        case ED_KEY_HELP:
            ed_help_key();
            break;
        case ED_KEY_ESC:
            ed_escape();
            break;
        default:
            if (iKey >= ' ' && iKey <= '~') {
                (void)ed_store_key(static_cast<char>(iKey), true);
            }
            break;
        }
    }
    glCursor = 0;
    CLI_SaveHistroyCmd(pcLineBuf);
    return lRet;
}

// ---- the loop ----

[[noreturn]] void CLI_ErrorQuit(const char *pcMsg, const struct termios *pstSaved)
{
    out_flush();
    fprintf(stderr, "%s\n", pcMsg);
    (void)tcsetattr(STDIN_FILENO, TCSANOW, pstSaved);
    ed_destroy_tree();
    exit(1);
}

namespace {

bool ed_is_help_marker(char cKey)
{
    return cKey == ED_KEY_HELP || cKey == ED_KEY_TAB;
}

// Equipment mode: every line goes to the parser. A line ended by "?" or Tab
// comes back for the operator to continue. Returns false when input ended.
bool ed_equipment_mode(const char *pcSysName)
{
    snprintf(gszSysPrompt, sizeof(gszSysPrompt), "[%s-equipment]", pcSysName);
    memset(gszLineBuf, 0, sizeof(gszLineBuf));
    bool bHelpPending = false;
    for (;;) {
        if (!gbAutoFixed) {
            out_str("\r\n");
            out_str(gszSysPrompt);
        }
        if (gbAutoFixed || bHelpPending) {
            out_str(gszLineBuf);
        }
        gbAutoFixed = 0;
        bHelpPending = false;
        if (CLI_Getline(gszLineBuf) != 0) {
            return false;
        }
        if (gszLineBuf[0] == 'q' || gszLineBuf[0] == 'Q') {
            out_str("\r\n");
            return true;
        }
        size_t ulLen = strlen(gszLineBuf);
        if (ulLen > 0 && ed_is_help_marker(gszLineBuf[ulLen - 1])) {
            bHelpPending = true;
            out_int("\033[", static_cast<int>(ulLen - 1), "D");
        }
        CLI_MainProcess(gszLineBuf, static_cast<uint64_t>(genLanguage));
        ulLen = strlen(gszLineBuf);
        if (!bHelpPending) {
            memset(gszLineBuf, 0, sizeof(gszLineBuf));
        } else if (ulLen > 0 && ed_is_help_marker(gszLineBuf[ulLen - 1])) {
            gszLineBuf[ulLen - 1] = '\0';
        }
    }
}

enum EdUserChoice { ED_USER_AGAIN, ED_USER_EQUIPMENT, ED_USER_QUIT };

EdUserChoice ed_user_choice(char *pcLine)
{
    if (pcLine[0] == ED_KEY_TAB || pcLine[0] == ED_KEY_HELP) {
        out_str("\r\nen_equipment\t\tEnter Sys Mode\r\nquit\t\t\tQuit CLI");
        return ED_USER_AGAIN;
    }
    // "e" and Tab is user mode's only completion.
    if ((pcLine[0] == 'e' || pcLine[0] == 'E') && strchr(pcLine, ED_KEY_TAB) != nullptr) {
        snprintf(pcLine, CLI_LINE_BUF_LEN, "%s", "en_equipment");
    }
    if (strncmp(pcLine, "en_equipment", 12) == 0) {
        return ED_USER_EQUIPMENT;
    }
    if (pcLine[0] == 'q' || pcLine[0] == 'Q') {
        return ED_USER_QUIT;
    }
    return ED_USER_AGAIN;
}

// User mode: knows only how to enter equipment mode or quit. Ends when the
// operator quits or input has ended.
void ed_user_mode(const char *pcSysName)
{
    for (;;) {
        snprintf(gszSysPrompt, sizeof(gszSysPrompt), "<%s>", pcSysName);
        out_str("\r\n");
        out_str(gszSysPrompt);
        EdUserChoice enChoice = ED_USER_AGAIN;
        while (enChoice == ED_USER_AGAIN) {
            memset(gszLineBuf, 0, sizeof(gszLineBuf));
            if (CLI_Getline(gszLineBuf) != 0) {
                return;
            }
            enChoice = ed_user_choice(gszLineBuf);
            if (enChoice == ED_USER_AGAIN) {
                out_str("\r\n");
                out_str(gszSysPrompt);
            }
        }
        if (enChoice == ED_USER_QUIT || !ed_equipment_mode(pcSysName)) {
            return;
        }
    }
}

void ed_start_led_worker(void)
{
    if (g_bLedWorkerStarted) {
        return;
    }
    pthread_t tid;
    if (pthread_create(&tid, nullptr, EQU_CmdProc_LedFlick, nullptr) != 0) {
        CLI_ErrorQuit("\r\nFailed to create led thread", &g_stEdSavedTerm);
    }
    g_bLedWorkerStarted = true;
}

}  // namespace

int CLI_ProcessCmd(const char *pcSysName)
{
    memset(&g_stEdSavedTerm, 0, sizeof(g_stEdSavedTerm));
    (void)tcgetattr(STDIN_FILENO, &g_stEdSavedTerm);
    g_bEdTermSaved = 1;
    ed_install_restore_handlers();

    struct termios stRaw = g_stEdSavedTerm;
    cfmakeraw(&stRaw);
    // Keep newline translation on output: every message starts with "\r\n"
    // but the shell tools we run print plain "\n".
    stRaw.c_oflag |= OPOST;
    if (tcsetattr(STDIN_FILENO, TCSAFLUSH, &stRaw) != 0) {
        CLI_ErrorQuit("\r\nFailed to set attributes", &g_stEdSavedTerm);
    }
    ed_start_led_worker();

    {
        // Held for the whole session: output leaves at the loop's flush
        // points, so a command's closing and the next prompt go together.
        OutPiece stPiece;
        ed_user_mode(pcSysName);
        out_str("\r\n");
    }
    int iRet = ed_restore_terminal();
    ed_destroy_tree();
    return iRet;
}
