// ---- the interactive loop: raw terminal, user and equipment modes, line
// editor and history ring. Owns standard input (termios) for the life of the
// tool and starts the LED worker once.
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <pthread.h>
#include <termios.h>
#include <unistd.h>

#include "equ_cli_cmd.h"
#include "equ_cmd.h"

int64_t glCursor = 0;
char *gapcHistoryCmd[CLI_HISTORY_NUM] = {};
uint64_t gulHistorySavePosition = 0;
uint64_t gulHistoryShowPosition = 0;

namespace {

constexpr int kEdMaxLine = CLI_LINE_BUF_LEN - 1;   // characters a line may hold

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
void ed_on_fatal_signal(int iSig)
{
    if (g_bEdTermSaved) {
        (void)tcsetattr(STDIN_FILENO, TCSANOW, &g_stEdSavedTerm);
    }
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

// Blocking read of one key; EOF only when input has ended for good.
int ed_read_key(void)
{
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
            printf("\b \b");
        } else {
            printf("\b%c\b", g_pcEdLine[ed_insert_pos()]);
        }
    }
    return true;
}

// Stores a key at the insertion point; the part right of the cursor moves
// one place right and is shown again.
bool ed_store_key(char cKey, bool bEcho)
{
    if (bEcho) {
        putchar(cKey);
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
            printf("\b \b");
        }
        return;
    }
    size_t ulPos = ed_insert_pos();
    if (ulPos == 0) {
        return;
    }
    printf("\b%s ", g_pcEdLine + ulPos);
    memmove(g_pcEdLine + ulPos - 1, g_pcEdLine + ulPos, g_ulEdLen - ulPos + 1);
    g_ulEdLen--;
    printf("\033[%dD", static_cast<int>(-glCursor + 1));
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
    printf("\r%s", gszSysPrompt);
    for (size_t ulIdx = 0; ulIdx < g_ulEdLen; ulIdx++) {
        putchar(' ');
    }
    printf("\r%s%s", gszSysPrompt, pcText);
}

// ---- cursor ----

void CLI_input_forward(void)
{
    glCursor++;
    if (glCursor > 0) {
        glCursor = 0;
        return;
    }
    // Printing the character passed over moves the terminal cursor right.
    putchar(g_pcEdLine[ed_insert_pos() - 1]);
}

void CLI_input_backward(void)
{
    glCursor--;
    if (-glCursor > static_cast<int64_t>(g_ulEdLen)) {
        glCursor = -static_cast<int64_t>(g_ulEdLen);
        return;
    }
    printf("\033[1D");
}

void CLI_RewriteToEnd(void)
{
    printf("%s", g_pcEdLine + ed_insert_pos());
    printf("\033[%dD", static_cast<int>(-glCursor));
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
        if (gbAutoFixed) {
            printf("%s", gszLineBuf);
            gbAutoFixed = 0;
        } else if (bHelpPending) {
            printf("\r\n%s", gszSysPrompt);
            printf("%s", gszLineBuf);
        } else {
            printf("\r\n%s", gszSysPrompt);
        }
        bHelpPending = false;
        if (CLI_Getline(gszLineBuf) != 0) {
            return false;
        }
        if (gszLineBuf[0] == 'q' || gszLineBuf[0] == 'Q') {
            puts("\r");
            return true;
        }
        size_t ulLen = strlen(gszLineBuf);
        if (ulLen > 0 && ed_is_help_marker(gszLineBuf[ulLen - 1])) {
            bHelpPending = true;
            printf("\033[%uD", static_cast<unsigned>(ulLen - 1));
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
        printf("\r\nen_equipment\t\tEnter Sys Mode");
        printf("\r\nquit\t\t\tQuit CLI");
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
        printf("\r\n%s", gszSysPrompt);
        EdUserChoice enChoice = ED_USER_AGAIN;
        while (enChoice == ED_USER_AGAIN) {
            memset(gszLineBuf, 0, sizeof(gszLineBuf));
            if (CLI_Getline(gszLineBuf) != 0) {
                return;
            }
            enChoice = ed_user_choice(gszLineBuf);
            if (enChoice == ED_USER_AGAIN) {
                printf("\r\n%s", gszSysPrompt);
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

    ed_user_mode(pcSysName);

    puts("\r");
    int iRet = ed_restore_terminal();
    ed_destroy_tree();
    return iRet;
}
