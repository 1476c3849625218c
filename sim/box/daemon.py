"""What the box's fixtures share: the journal line, and serving in a
detached child once the caller's set-up is done."""
import os


def journal(state, text):
    """Appends one line to the state's journal, as the board's nodes do."""
    fd = os.open(os.path.join(state, 'journal'), os.O_WRONLY | os.O_APPEND | os.O_CREAT, 0o644)
    try:
        os.write(fd, (text + '\n').encode())
    finally:
        os.close(fd)


def serve(run):
    """Runs run() in a child of its own session with no console, so the
    launcher goes on at once and the fixture lives until the box ends."""
    if os.fork() == 0:
        os.setsid()
        devnull = os.open(os.devnull, os.O_RDWR)
        for fd in (0, 1, 2):
            os.dup2(devnull, fd)
        run()
        os._exit(0)
