#!/usr/bin/python3
"""CUPS backend: has a job opened on the desktop that quorbin://HOST[:PORT]/[?OPTIONS] names.

The scheduler starts it with the job's title and options as arguments and the content in a file or
on standard input, and reads messages from its standard error. See quorbin-cups(8).
"""

import ctypes
import os
import re
import shlex
import shutil
import signal
import subprocess
import sys
import tempfile
import time
import unicodedata
import urllib.parse
import xml.etree.ElementTree

DEFAULT_PORT = 9438

# Exit status: what the scheduler does next. These do not depend on the queue's error policy.
OK = 0
FAILED = 1  # only for a call that is none of the scheduler's
STOP = 4  # the queue stops, the job stays in it
CANCEL = 5  # the job ends, the queue goes on
RETRY_CURRENT = 7  # the job starts again at once, before all later ones, however often

# Of quorbin-send: the desktop has refused the file, or the content can't be sent; the connection
# alone has failed. Above 1 is wrong usage, and what setpriv has if there is no quorbin-send to run.
REFUSED = 1
SEND_LATER = 75

# Seconds that one start of the backend waits for a desktop before it has itself started again. The
# scheduler cancels a job that runs longer than MaxJobTime (three hours) and counts from each start.
# In a class that start may be on another desktop, so it comes soon.
WAIT = 600
WAIT_IN_CLASS = 5

BUSY = 2  # seconds that one try gives a desktop which another sender keeps busy
FIRST_PAUSE, LONGEST_PAUSE = 1, 30  # seconds between two tries; each pause is twice the last one
PR_SET_PDEATHSIG = 1  # <sys/prctl.h>: a signal for the process when its parent ends

AWAITED = (signal.SIGTERM, signal.SIGCHLD)  # during a try

PROGRESS_STEP = 2  # seconds between two messages about a transfer

# Bytes. A file name holds 255, and the desktop adds its prefix and perhaps a number.
NAME_LIMIT = 240

TEXT, PREFIX, SUFFIX, EXT = "text", "prefix", "suffix", "ext"
OPTIONS = (TEXT, PREFIX, SUFFIX, EXT)
JOB_OPTION = "quorbin-"  # begins their names in lp -o
JOB_UUID = "job-uuid="  # the scheduler's own option
YES = ("", "1", "on", "true", "yes")
EXTENSION = re.compile(r"\.?[A-Za-z0-9._+-]{0,31}")

# No part of a path, pattern or notation on any desktop, and no mark that turns the order of what
# is shown; control characters come on top.
UNSAFE = re.compile(r'[/\\:*?"<>|\u061c\u200b-\u200f\u2028-\u202e\u2060-\u2069\ufeff]')
NAME_SUFFIX = re.compile(r"(?<=.)\.[A-Za-z0-9]{0,8}[A-Za-z][A-Za-z0-9]{0,8}$")

PDF = "application/pdf"
RAW_TYPES = ("application/octet-stream", "application/vnd.cups-raw")  # say nothing about a file

PDF_TAIL = 1024  # bytes, in which a whole PDF has its end marker

MIME_DATABASES = ("/usr/local/share/mime", "/usr/share/mime")
MIME_TYPE = re.compile(r"[A-Za-z0-9][\w.+-]*/[A-Za-z0-9][\w.+-]*")
MIME_GLOB = "{http://www.freedesktop.org/standards/shared-mime-info}glob"


class End(Exception):
    """Ends the backend with an exit status; the reason is shown as the job's state."""

    def __init__(self, status, reason):
        super().__init__(reason)
        self.status = status


def say(kind, text):
    """One message to the scheduler, which is one line. Nothing in it steers a terminal."""
    shown = "".join(c if c.isprintable() else ascii(c)[1:-1] for c in " ".join(text.split()))
    print(f"{kind}: {shown}", file=sys.stderr, flush=True)


# ---- What queue and job ask for


def read_device(uri):
    """Host, port and options of the queue."""
    try:
        parts = urllib.parse.urlsplit(uri)
        host, port = urllib.parse.unquote(parts.hostname or ""), parts.port or DEFAULT_PORT
        options = dict(urllib.parse.parse_qsl(parts.query, keep_blank_values=True))
    except ValueError as error:
        raise End(STOP, f"The device URI is wrong: {error}") from error
    zero_byte = "\0" in urllib.parse.unquote(uri)  # which no argument can hold
    if parts.scheme != "quorbin" or not host or parts.path not in ("", "/") or zero_byte:
        raise End(STOP, "The device URI is not of the form quorbin://HOST[:PORT]/[?OPTIONS]")
    for name in options:
        if name not in OPTIONS:
            raise End(STOP, f"The device URI has an unknown option: {name}")
    return host, port, options


def split_options(text):
    """A backslash keeps a blank within a value."""
    try:
        return shlex.split(text)
    except ValueError as error:
        raise End(CANCEL, f"The job's options can't be read: {error}") from error


def read_job_options(text):
    """Those of the job's options that are ours."""
    options = {}
    for word in split_options(text):
        if word.startswith(JOB_OPTION):
            name, _, value = word.removeprefix(JOB_OPTION).partition("=")
            if name not in OPTIONS:
                raise End(CANCEL, f"Unknown option: {JOB_OPTION}{name}")
            if name == EXT and not EXTENSION.fullmatch(value):
                raise End(CANCEL, f"{JOB_OPTION}{EXT} is no extension: {value}")
            options[name] = value
    return options


# ---- What a queue has delivered


def run_of_parent():
    """Tells one run of the scheduler from the next."""
    parent = os.getppid()
    try:
        with open(f"/proc/{parent}/stat", encoding="ascii", errors="replace") as stat:
            return f"{parent}-{stat.read().rpartition(')')[2].split()[19]}"  # when it started
    except OSError:
        return str(parent)


class Progress:
    """How many files of the queue's present job have been received.

    The scheduler counts a job as done only some time after the backend has ended. If it is itself
    ended before, the next one starts the job anew: then what has been received is passed over. So
    it is after RETRY_CURRENT. Otherwise a further start for the same job is for its next document.
    """

    def __init__(self, options):
        self.path = os.path.join(os.environ.get("CUPS_CACHEDIR", "/var/cache/cups"),
                                 f"quorbin-{os.environ.get('PRINTER', '')}")
        # Split as the options are, so that a value with a blank can't pass for a number.
        uuids = [word for word in split_options(options) if word.startswith(JOB_UUID)]
        self.job = uuids[-1].removeprefix(JOB_UUID) if uuids else ""
        self.run = run_of_parent()
        self.reached = self.received = 0  # files from the job's beginning on
        try:
            with open(self.path, encoding="ascii") as file:
                job, run, *counts = file.read().split()
            reached, received = map(int, counts)
        except FileNotFoundError:
            return  # the queue's first job
        except (OSError, ValueError) as error:
            say("WARNING", f"Can't read what has been received: {error}")
            return
        if self.job and job == self.job:
            self.received = received
            if run == self.run:
                self.reached = reached

    def next_is_received(self):
        """Goes on to the job's next file; whether that one has been received."""
        self.reached += 1
        if self.reached > self.received:
            return False
        self.save(self.run)
        return True

    def add(self):
        self.received = self.reached
        self.save(self.run)

    def start_over(self):
        """The scheduler will start with the job's first file."""
        self.save("-")

    def save(self, run):
        new = f"{self.path}.N"
        try:
            with open(new, "w", encoding="ascii") as file:
                file.write(f"{self.job or '-'} {run} {self.reached} {self.received}\n")
            os.replace(new, self.path)
        except OSError as error:  # no reason to fail a job, let alone one that has been received
            say("WARNING", f"Can't note what has been received: {error}")


# ---- Name and extension


def suffixes_of(mime_type):
    """The suffixes of a type's files, the usual one first; empty for an unknown type."""
    if not MIME_TYPE.fullmatch(mime_type):
        return []
    for database in MIME_DATABASES:
        try:
            tree = xml.etree.ElementTree.parse(f"{database}/{mime_type}.xml")
        except FileNotFoundError:
            continue
        except (OSError, xml.etree.ElementTree.ParseError) as error:
            say("WARNING", f"{database}/{mime_type}.xml: {error}")
            continue
        globs = (glob.get("pattern", "") for glob in tree.iter(MIME_GLOB))
        return [glob[1:] for glob in globs if re.fullmatch(r"\*\.[\w.+-]+", glob)]
    return []


def some_type_has(suffix):
    """Whether the database knows files with that suffix."""
    for database in MIME_DATABASES:
        try:
            with open(f"{database}/globs2", encoding="utf-8", errors="replace") as lines:
                if any(line.rstrip("\n").endswith(f":*{suffix.lower()}") for line in lines):
                    return True
        except FileNotFoundError:
            continue
        except OSError as error:
            say("WARNING", f"{error}")
    return False


def size_of(text):
    """In bytes, as a file name."""
    return len(os.fsencode(text))


def choose_name(title, ext, final_type, job_type):
    """Stem and suffix of the received file, and the extension that chooses its viewer.

    The suffix in the title decides: the job's type is the scheduler's guess from two bytes or so.
    But what filters have made, and a PDF, is what it is: a page called "About example.com" that
    was made a PDF, or "report.odt". An extension that was asked for leaves the name alone.
    """
    name = "".join("_" if UNSAFE.match(c) or unicodedata.category(c) in ("Cc", "Zl", "Zp") else c
                   for c in title).strip()
    found = NAME_SUFFIX.search(name)
    suffix = found[0] if found else ""
    if not ext:
        sure = final_type != job_type or final_type == PDF
        usual = suffixes_of(final_type) if sure or not suffix else []
        if usual and suffix.lower() not in usual:
            if not some_type_has(suffix):
                suffix = ""  # the end of a sentence, or a version
            name = name.removesuffix(suffix) + usual[0]
            suffix = usual[0]
        if not suffix:
            raise End(CANCEL, f"Neither the title nor the type {job_type} gives an extension; "
                              f"print with -o {JOB_OPTION}{EXT}=.xyz")
    elif not suffix:
        suffix = ext
        name += ext
    stem = name.removesuffix(suffix)
    while stem and size_of(stem) + size_of(suffix) > NAME_LIMIT:
        stem = stem[:-1]
    return stem.rstrip(), suffix, ext or suffix


# ---- The transfer


def open_content(arguments, final_type):
    """The content as a regular file, so that every try can read it from its beginning."""
    if len(arguments) == 7:
        return open(arguments[6], "rb")
    content = tempfile.TemporaryFile()  # where the scheduler's TMPDIR says
    shutil.copyfileobj(sys.stdin.buffer, content)
    content.flush()
    # A filter that fails just ends, and the scheduler looks at its exit status later.
    size = content.seek(0, os.SEEK_END)
    content.seek(max(0, size - PDF_TAIL))
    if final_type == PDF and b"%%EOF" not in content.read():
        raise End(CANCEL, "The filters have not made a whole PDF")
    return content


def let_signals_through():
    signal.pthread_sigmask(signal.SIG_UNBLOCK, AWAITED)


def position(content):
    """Bytes that quorbin-send has read: it reads by our descriptor, so we share the position."""
    return os.lseek(content.fileno(), 0, os.SEEK_CUR)


def send(command, content, desk, note):
    """One try. Returns the exit status of quorbin-send, and what it said.

    Calls note if the desktop has received the file. The signal that ends the backend is taken only
    while quorbin-send runs, so that it does not come between the two.
    """
    os.lseek(content.fileno(), 0, os.SEEK_SET)
    size = os.fstat(content.fileno()).st_size
    ended = False
    signal.pthread_sigmask(signal.SIG_BLOCK, AWAITED)
    try:
        with (tempfile.TemporaryFile() as said,
              subprocess.Popen(command, stdin=content, stdout=said, stderr=subprocess.STDOUT,
                               preexec_fn=let_signals_through) as process):
            while process.poll() is None:
                event = signal.sigtimedwait(AWAITED, PROGRESS_STEP)
                if event is None:
                    percent = position(content) * 100 // max(size, 1)
                    say("ATTR", f"job-media-progress={percent}")
                    say("INFO", f"{percent} % sent to {desk}.")
                elif event.si_signo == signal.SIGTERM:
                    process.terminate()  # the desktop drops what came so far
                    ended = True
            said.seek(0)
            reason = said.read().decode("utf-8", "replace").strip()
        if process.returncode == 0:
            note()
        if ended:
            sys.exit(RETRY_CURRENT)
    finally:
        let_signals_through()
    return process.returncode, reason.removeprefix("quorbin-send: ").removeprefix("-: ")


def deliver(command, content, desk, patience, note):
    """Tries until the desktop has received the file or refused it, or patience (s) is over."""
    give_up = time.monotonic() + patience
    pause, refused = FIRST_PAUSE, False
    while True:
        status, reason = send(command, content, desk, note)
        if status == 0:
            return
        if status < 0:
            reason = f"quorbin-send was ended by signal {-status}"
        if status == SEND_LATER or status < 0:
            refused = False
            say("STATE", "+connecting-to-device")
            say("INFO", f"Waiting for {desk}: {reason}")
            if time.monotonic() + pause > give_up:
                time.sleep(pause)
                raise End(RETRY_CURRENT, f"Waiting for {desk}: {reason}")
        elif status != REFUSED:
            raise End(STOP, f"quorbin-send has failed with status {status}: {reason}")
        else:
            # A service that ends just then closes the connection as one that refuses the host. So
            # a refusal counts when it comes twice, unless content has been sent.
            if refused or position(content) > 0:
                raise End(CANCEL, f"Refused by {desk}: {reason}")
            refused = True
        time.sleep(pause)
        pause = min(2 * pause, LONGEST_PAUSE)


def run(arguments):
    _, _, _, title, copies, options = arguments[:6]
    host, port, fixed = read_device(os.environ.get("DEVICE_URI", ""))
    desk = host if port == DEFAULT_PORT else f"{host}:{port}"
    asked = {**read_job_options(options), **fixed}  # what the queue says, no job changes

    job_type = os.environ.get("CONTENT_TYPE", RAW_TYPES[0])
    final_type = os.environ.get("FINAL_CONTENT_TYPE", job_type)
    if final_type in RAW_TYPES or final_type.startswith("printer/"):
        final_type = job_type
    stem, suffix, ext = choose_name(title, asked.get(EXT), final_type, job_type)

    # If the backend is killed, so is quorbin-send: the scheduler will have the job sent again.
    command = ["setpriv", "--pdeathsig", "TERM", "quorbin-send", f"--host={host}", f"--port={port}",
               f"--ext={ext}", f"--wait={BUSY}"]
    if asked.get(TEXT, "no").lower() in YES:
        command.append("--text")
    for option in (PREFIX, SUFFIX):
        if asked.get(option):
            command.append(f"--{option}={asked[option]}")

    patience = WAIT_IN_CLASS if "CLASS" in os.environ else WAIT
    from_file = len(arguments) == 7
    progress = Progress(options)
    with open_content(arguments, final_type) as content:
        # Where there are filters, copies are their business. Otherwise each has a name of its own,
        # or it would take the place of the one before.
        for copy in range(1, int(copies) + 1 if from_file else 2):
            name = f"{stem} ({copy}){suffix}" if copy > 1 else stem + suffix
            if progress.next_is_received():
                say("INFO", f"{desk} has received {name} before.")
                continue
            say("INFO", f"Sending {name} to {desk}.")
            try:
                deliver([*command, f"--name={name}", "-"], content, desk, patience, progress.add)
            except BaseException:
                progress.start_over()
                raise
            say("STATE", "-connecting-to-device")
            say("INFO", f"{name} has been received by {desk}.")
            if from_file:
                say("PAGE", f"{copy} 1")  # filters count pages


def first_process():
    with open("/proc/1/comm", encoding="utf-8", errors="replace") as name:
        return name.read().strip()


def end_with_the_scheduler():
    """An orphan would deliver what the next scheduler has delivered once more."""
    libc = ctypes.CDLL(None, use_errno=True)
    libc.prctl(PR_SET_PDEATHSIG, signal.SIGTERM)  # also when a kill has left it no time to tell us
    # It has ended already, unless it is the first process itself, as in a container.
    if os.getppid() == 1 and first_process() != "cupsd":
        sys.exit(RETRY_CURRENT)


def main():
    # Whoever ends the backend, the job goes on from the note; of a canceled one nothing is retried.
    signal.signal(signal.SIGTERM, lambda *_: sys.exit(RETRY_CURRENT))
    end_with_the_scheduler()
    if len(sys.argv) == 1:
        print('network quorbin "Unknown" "Desktop with Quorbin"')
        return OK
    if len(sys.argv) not in (6, 7):
        say("ERROR", "usage: quorbin JOB USER TITLE COPIES OPTIONS [FILE]")
        return FAILED
    try:
        run(sys.argv)
    except End as end:
        say("INFO" if end.status == RETRY_CURRENT else "ERROR", str(end))
        return end.status
    except OSError as error:  # of this machine: no space, no descriptor, no job file
        say("ERROR", f"{error}")
        time.sleep(LONGEST_PAUSE)
        return RETRY_CURRENT
    return OK


sys.exit(main())
