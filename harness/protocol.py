"""The tool's console protocol, as a harness and the box's fixtures read it:
prompts, the banner, the frame around each command's output, the engine's
unframed refusals with their caret, the confirmation question.

Everything here works on the bytes a terminal shows. The tool's console is
raw but for output post-processing, so each "\\n" the tool writes arrives as
"\\r\\n": the tool's own "\\r\\n" shows as "\\r\\r\\n", a BusyBox program's
"\\n" as "\\r\\n".
"""
import re
from dataclasses import dataclass

MODEL = 'PLM7140'
BANNER = b'EQUIPMENT_TEST_OK'
CONFIRM = b'Are you sure?(Y/N)'
ENCODING = 'gbk'
# The engine's answers to a line it cannot run, and the verdict each gives.
REFUSALS = {b'Wrong Command Input!': 'refused', b'Ambiguous Command Input!': 'refused',
            b'InComplete Command Input!': 'incomplete'}
FRAME = re.compile(rb'\r\n@(?P<body>.*)\r\ntest result:(?P<result>pass|fail)\r\n\$\$', re.S)
# The caret line of a refusal: a line break, blanks, "^", the message.
CARET = re.compile(rb'\r\n( *)\^\r\n(' + b'|'.join(map(re.escape, REFUSALS)) + rb')')
USER_PROMPT = re.compile(rb'\r?\r\n<([^<>\r\n]+)>\Z')


def user_prompt(model=MODEL):
    return f'<{model}>'.encode()


def equipment_prompt(model=MODEL):
    return f'[{model}-equipment]'.encode()


def prompts(model=MODEL):
    """The two prompts as they show after the line break before them."""
    return [b'\r\n' + user_prompt(model), b'\r\n' + equipment_prompt(model)]


def undo_onlcr(raw):
    """The tool's own bytes from what the terminal showed: the pty turns every
    "\\n" into "\\r\\n", so each "\\r\\n" seen was a "\\n" written."""
    return raw.replace(b'\r\n', b'\n')


def decode(data):
    """The tool's text: its Chinese messages and help are GBK."""
    return data.decode(ENCODING, errors='replace')


# ---- frames ----

@dataclass
class Frame:
    """One command's answer, as the tool wrote it (terminal's \\r undone).

    result: 'pass', 'fail', or None when the engine printed no frame (an
    unknown command, an incomplete one).
    lines: the handler's lines between "@" and "test result:" (each line the
    tool began with "\\r\\n"), as bytes; for an unframed answer, its lines.
    text: everything after the echo of the command, up to the next prompt.
    raw: the same, as the terminal showed it.
    """
    result: str | None
    lines: list
    text: bytes
    raw: bytes

    @property
    def passed(self):
        return self.result == 'pass'

    @property
    def body(self):
        return b'\r\n'.join(self.lines)

    @property
    def body_raw(self):
        """The bytes after "@" up to the result line, as the tool wrote them."""
        match = FRAME.search(self.text)
        return match.group('body') if match else None


def parse_frame(raw):
    text = undo_onlcr(raw)
    match = FRAME.search(text)
    if not match:
        lines = [line for line in text.split(b'\r\n') if line]
        return Frame(None, lines, text, raw)
    body = match.group('body')
    lines = body.split(b'\r\n') if body else []
    if body.startswith(b'\r\n'):
        lines = lines[1:]
    return Frame(match.group('result').decode(), lines, text, raw)


# ---- what a harness reads from an answer ----

@dataclass
class Answer:
    """A command's answer as a verdict: 'pass', 'fail', 'refused' (a wrong
    or ambiguous word, or nothing ran), 'incomplete'. lines: the handler's
    lines, or a refusal's lines before its caret (a validator's reason), each
    split where the tool or a program it ran ended a line. message and caret:
    the refusal's text and the column of its caret in the typed line."""
    verdict: str
    lines: list
    message: str | None = None
    caret: int | None = None


def split_lines(body):
    # The tool ends lines with "\r\n", the programs it runs (BusyBox) with
    # "\n", so a program's first line is glued to the "@" line. Empty lines
    # tell a harness nothing.
    return [line for line in re.split(rb'\r?\n', body) if line]


def parse_answer(raw, prompt_len):
    """The verdict of what the terminal showed after a command's echo, up to
    the prompt; prompt_len is the length of the prompt the line was typed at
    (the caret is indented by it)."""
    text = undo_onlcr(raw)
    frame = FRAME.search(text)
    if frame:
        return Answer(frame.group('result').decode(), split_lines(frame.group('body')))
    refusal = CARET.search(text)
    if not refusal:
        return Answer('refused', split_lines(text))
    before = split_lines(text[:refusal.start()])
    message = refusal.group(2)
    return Answer(REFUSALS[message], before, message.decode(),
                  len(refusal.group(1)) - 2 - prompt_len)


def redraw(line):
    """A line as a terminal leaves it: each "\\r" starts the line over and
    the text after it overwrites (a progress bar's redraws)."""
    shown = bytearray()
    for part in line.split(b'\r'):
        shown[:len(part)] = part
    return bytes(shown)


def text_of(lines):
    return '\n'.join(decode(redraw(line)) for line in lines)
