// The command-line engine's interface: templates of numbered elements, rules
// that join elements into command paths, the parameter record handed to
// validators and handlers, and the interactive loop.
#pragma once
#include <cstdint>
#include <cstddef>
#include <termios.h>
#include "equ_help_info.h"

#define CLI_TEMPLET_SIZE  30   // element slots in a template, rule numbers per rule
#define CLI_MAX_TOKEN_NUM 30   // tokens kept from one line
#define CLI_MAX_TOKEN_LEN 128  // token text with its terminator
#define CLI_KEYWORD_LEN   128  // element keyword with its terminator
#define CLI_LINE_BUF_LEN  100  // gszLineBuf: 99 characters and a terminator
#define CLI_HISTORY_NUM   11

#define CLI_PARA_NONE  (~(uint64_t)0)  // parameter id of a plain keyword
#define CLI_VALUE_NONE (~(uint64_t)0)  // value field when the has-value flag is clear
#define CLI_INTEGER    "<Integer>"
#define CLI_STRING     "<String>"

struct CLI_CMD_NODE_S;
struct CLI_CMD_PARA_S;
struct CLI_LEVEL_INDEX_S;

// What a node accepts, fixed from its keyword when the element is made, so
// that parsing never compares keyword texts with the slot markers.
enum CLI_NODE_KIND_E : uint32_t {
    CLI_NODE_KEYWORD = 0,
    CLI_NODE_INTEGER,  // keyword CLI_INTEGER
    CLI_NODE_STRING,   // keyword CLI_STRING
};

// Help-list entry, built by an element's help generator.
struct CLI_HELP_VECTOR_S {
    const char *pcKey;
    const char *pcHelpEn;
    const char *pcHelpCh;
    CLI_HELP_VECTOR_S *pstNext;
};

typedef uint64_t (*CLI_CMD_HANDLER_PF)(CLI_CMD_PARA_S *pstCmdPara);
typedef uint64_t (*CLI_CMD_CHECK_PF)(const char *pcToken, CLI_CMD_PARA_S *pstCmdPara);
typedef void (*CLI_HELP_GEN_PF)(const char *pcToken, CLI_CMD_PARA_S *pstCmdPara,
                                CLI_HELP_VECTOR_S *pstHead);

// Command element and command node: one record (a node is a copy of an
// element plus its links).
struct CLI_CMD_NODE_S {
    char szKey[CLI_KEYWORD_LEN];
    uint64_t ulParaId;  // CLI_PARA_NONE: keyword, not recorded
    uint32_t ulHasValue;
    uint64_t ulValue;
    CLI_HELP_GEN_PF pfHelpGen;
    CLI_CMD_CHECK_PF pfCheck;
    CLI_CMD_HANDLER_PF pfHandler;  // only on the last node of an installed rule
    const EQU_KEY_HELP_INFO_S *pstHelpTbl;
    uint64_t ulHelpIdx;
    CLI_CMD_NODE_S *pstBrother;
    CLI_CMD_NODE_S *pstSon;
    CLI_NODE_KIND_E enKind;
    // On the first node of a level with several nodes: the level's lookup
    // index, kept by CLI_AddInBrotherCmd and freed with the node.
    CLI_LEVEL_INDEX_S *pstLevelIndex;
};
typedef CLI_CMD_NODE_S CLI_CMD_ELEMENT_S;

// A template: CLI_TEMPLET_SIZE element pointers; element n lives in slot n-1.
typedef CLI_CMD_ELEMENT_S *CLI_CMD_TEMPLET_S;

struct CLI_CMD_PARA_ENTRY_S {
    char szPara[CLI_MAX_TOKEN_LEN];  // the token as typed
    CLI_CMD_NODE_S *pstNode;         // the node it matched
};

// Parameter record, rebuilt for every line.
struct CLI_CMD_PARA_S {
    uint64_t ulRsv;
    uint64_t ulLanguage;  // non-zero English, 0 Chinese
    uint64_t ulParaLen;
    CLI_CMD_PARA_ENTRY_S astPara[CLI_MAX_TOKEN_NUM];
};

// ---- construction ----
CLI_CMD_TEMPLET_S *CLI_NewCmdTemplet(void);
int64_t CLI_NewCmdElement(CLI_CMD_TEMPLET_S *pTemplet, uint32_t ulNum, const char *pcKey,
                          uint64_t ulParaId, uint32_t ulHasValue, uint64_t ulValue,
                          CLI_CMD_CHECK_PF pfCheck, CLI_HELP_GEN_PF pfHelpGen,
                          const EQU_KEY_HELP_INFO_S *pstKeyHelpInfo, uint64_t ulHelpIdx);
int64_t CLI_CmdRuleCheck(const char *pcRule, int64_t *plCmdVec, int64_t *plCount);
CLI_CMD_NODE_S *CLI_GetCmdLinkFromRule(CLI_CMD_TEMPLET_S *pTotalCmdVec, int64_t lTotalElementNum,
                                       const int64_t *plCmdVec, int64_t lCount,
                                       CLI_CMD_HANDLER_PF pfHandlefunc);
CLI_CMD_NODE_S *CLI_MatchInBrotherCmd(CLI_CMD_NODE_S *pstCurTemplet, CLI_CMD_NODE_S *pstCmdNode);
int64_t CLI_AddInBrotherCmd(CLI_CMD_NODE_S *pstCmdTemplet, CLI_CMD_NODE_S *pstCmdNode);
int64_t CLI_InstallCmdTemplet(CLI_CMD_NODE_S *pstCmdLink);
int64_t CLI_InstallCmd(CLI_CMD_TEMPLET_S *pTotalCmdVector, int64_t lTotalElementNum,
                       const char *pcRule, CLI_CMD_HANDLER_PF pfHandleFunc);
int64_t CLI_FreeCmdTemplet(CLI_CMD_TEMPLET_S *pCmdVector, int64_t lCount);
void CLI_DestroyCmdTemplet(CLI_CMD_NODE_S *pstCmdNode);

// Shorthands for registration functions: a keyword, or a typed parameter slot.
inline void CLI_AddKey(CLI_CMD_TEMPLET_S *pT, uint32_t ulNum, const char *pcKey,
                       const EQU_KEY_HELP_INFO_S *pstHelp, uint64_t ulRow)
{
    CLI_NewCmdElement(pT, ulNum, pcKey, CLI_PARA_NONE, 0, CLI_VALUE_NONE, nullptr, nullptr, pstHelp,
                      ulRow);
}
inline void CLI_AddPara(CLI_CMD_TEMPLET_S *pT, uint32_t ulNum, const char *pcMarker,
                        CLI_CMD_CHECK_PF pfCheck, const EQU_KEY_HELP_INFO_S *pstHelp,
                        uint64_t ulRow)
{
    CLI_NewCmdElement(pT, ulNum, pcMarker, 0, 0, CLI_VALUE_NONE, pfCheck, nullptr, pstHelp, ulRow);
}
// The same with a named help row (HELP_COMM_TEST and the like).
inline void CLI_AddKey(CLI_CMD_TEMPLET_S *pT, uint32_t ulNum, const char *pcKey,
                       EQU_HELP_ROW_S stHelp)
{
    CLI_AddKey(pT, ulNum, pcKey, stHelp.pstTbl, stHelp.ulRow);
}
inline void CLI_AddPara(CLI_CMD_TEMPLET_S *pT, uint32_t ulNum, const char *pcMarker,
                        CLI_CMD_CHECK_PF pfCheck, EQU_HELP_ROW_S stHelp)
{
    CLI_AddPara(pT, ulNum, pcMarker, pfCheck, stHelp.pstTbl, stHelp.ulRow);
}

// ---- string functions ----
int CLI_IsdigitString(const char *pcStr);
int CLI_IsOnlydigitString(const char *pcStr);
uint64_t CLI_StrtoUL(const char *pcStr);
int64_t CLI_StrtoL(const char *pcStr);
uint64_t CLI_Skip_AtoI(const char **ppcCur);
uint64_t CLI_Skip_AtoHex(const char **ppcCur);

// ---- parsing and dispatch ----
int64_t CLI_MainProcess(char *pcLineBuf, uint64_t ulLanguage);
int64_t CLI_GetCmdArg(const char *pcLineBuf, char (*pcArgv)[CLI_MAX_TOKEN_LEN], int64_t *plArgc);
int64_t CLI_MatchInputInBrotherCmd(const char *pcToken, CLI_CMD_NODE_S *pstLevel,
                                   CLI_CMD_NODE_S **ppstMatched);
int64_t CLI_MatchCmdKeyInBrotherCmd(CLI_CMD_NODE_S *pstLevel, const char *pcToken,
                                    CLI_CMD_NODE_S **ppstMatched);
int64_t CLI_MatchIntegerInBrotherCmd(CLI_CMD_NODE_S *pstLevel, CLI_CMD_NODE_S **ppstMatched);
int64_t CLI_MatchStringInBrotherCmd(CLI_CMD_NODE_S *pstLevel, CLI_CMD_NODE_S **ppstMatched);
int64_t CLI_CheckCmdArg(const char *pcToken, CLI_CMD_PARA_S *pstCmdPara, CLI_CMD_NODE_S *pstNode);
int64_t CLI_RecordCmdPara(CLI_CMD_NODE_S *pstNode, CLI_CMD_PARA_S *pstCmdPara, const char *pcToken);
int CLI_IsCompleteCmdLine(const CLI_CMD_NODE_S *pstNode);
int64_t CLI_ExecCmdHandleFunc(CLI_CMD_NODE_S *pstCmdNode, CLI_CMD_PARA_S *pstCmdParaInfo);

// ---- parameter access for handlers and validators ----
int64_t CLI_GetAllParaNum(CLI_CMD_PARA_S *pstCmdPara, uint64_t *pulParaNum);
int64_t CLI_GetUlongValuePara(CLI_CMD_PARA_S *pCmdPara, int64_t lCmdParaSeq, uint64_t *pulRetVal);
int64_t CLI_GetOctStringPara(CLI_CMD_PARA_S *pCmdPara, int64_t lCmdParaSeq, char *pcDst);
int64_t CLI_GetParaOID(CLI_CMD_PARA_S *pCmdPara, int64_t lCmdParaSeq, uint64_t *pulCmdCMO);

// ---- help, completion, error pointers ----
int64_t CLI_PrintCmdHelpInfo(const char *pcToken, CLI_CMD_PARA_S *pstCmdPara,
                             CLI_CMD_NODE_S *pstLevel);
int64_t CLI_ExternCmdInfo(const char *pcToken, CLI_CMD_PARA_S *pstCmdPara,
                          CLI_CMD_NODE_S *pstLevel);
int64_t CLI_PrintCmdCompleteHelpInfo(const char *pcToken, CLI_CMD_PARA_S *pstCmdPara,
                                     CLI_CMD_NODE_S *pstLevel);
int64_t CLI_PrintCmdPartHelpInfo(const char *pcToken, CLI_CMD_PARA_S *pstCmdPara,
                                 CLI_CMD_NODE_S *pstLevel);
int64_t CLI_PrintExternCmdPart(const char *pcToken, CLI_CMD_PARA_S *pstCmdPara,
                               CLI_CMD_NODE_S *pstLevel);
int64_t CLI_PrintWrongCmdPos(const char *pcLine, const char *pcToken, int64_t lTokenNum);
int64_t CLI_PrintAmbiguousCmdPos(const char *pcLine, const char *pcToken, int64_t lTokenNum);
int64_t CLI_PrintInCompleteCmd(const char *pcLine);
void CLI_FreeHelpVector(CLI_HELP_VECTOR_S *pstHead);

// ---- the interactive loop ----
int CLI_ProcessCmd(const char *pcSysName);
int64_t CLI_Getline(char *pcLineBuf);
void CLI_SaveHistroyCmd(const char *pcLine);
const char *CLI_GetHistroyCmdPre(void);
const char *CLI_GetHistroyCmdNext(void);
void CLI_ShowHistroyCmd(const char *pcText);
void CLI_input_forward(void);
void CLI_input_backward(void);
void CLI_RewriteToEnd(void);
unsigned char CLI_NoWaitGetChar(void);
[[noreturn]] void CLI_ErrorQuit(const char *pcMsg, const struct termios *pstSaved);

// ---- engine globals ----
extern CLI_CMD_NODE_S *gpstCmdTempletRoot;
extern char gszLineBuf[CLI_LINE_BUF_LEN];
extern char gszSysPrompt[128];
extern int64_t glCursor;
extern char *gapcHistoryCmd[CLI_HISTORY_NUM];
extern uint64_t gulHistorySavePosition;
extern uint64_t gulHistoryShowPosition;
extern int gbAutoFixed;
extern int32_t genLanguage;
