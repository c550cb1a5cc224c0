#!/usr/bin/env python3
"""quorbin-check: its warnings on damaged settings, and its explanations compared with what the
built service does."""

import json
import re
import subprocess

from service import BIN, DATA, PATIENCE, ROOT, TestCase, ask, free_port, main

# Settings files of one line each, in the section above, and the warning that it draws after an
# arrow, or below where the arrow begins a line.
DAMAGED_LINES = r"""[Global]
Control -> 'Control' is ignored: no key, no '=' or no section
=1 -> '=1' is ignored: no key, no '=' or no section
Prot=80 -> unknown key 'Prot' of Global: it is ignored
Default=*deny -> unknown key 'Default' of Global: it is ignored
Control=yes -> Control: 'yes' is no number: counts as 0
Control= -> Control: '' is no number: counts as 0
Control=2 ; open -> Control: '2 ; open' counts as 2
Icon=2.5 -> Icon: '2.5' counts as 2
Icon=32768 -> Icon: '32768' is too large for its field: counts as 0
Icon=00000000000000000002 -> Icon: the value is cut after 19 bytes
Port=80 -> port 80 is below 1024: an ordinary user may not listen on it
Prefix=
-> Prefix is empty: every hidden file in the directory of the received files is deleted
Prefix=\.
-> Prefix is empty: every hidden file in the directory of the received files is deleted
Port=65536 -> port 65536 is none: the service ends at its start
Port=-1 -> port -1 is none: the service ends at its start
Listen=localhost
-> Listen: 'localhost' is none of its values: the service ends at its start
Parameters=*Deny
-> Parameters: '*Deny' is none of its values: the service ends at its start
[Hosts]
host_allow=3 -> host_allow=3 while Control is 0: nobody is let in
[Extensions]
ext_allow=one -> ext_allow: 'one' is no number: counts as 0
Default=*deny and more
-> Default: '*deny and more' counts as absent, for it is not exactly *deny; *reg is in effect
.txt=*deny -> extension '.txt' has its dot: write it without, or it matches nothing
TXT=*deny -> extension 'TXT' is in upper case: it counts for every letter case
com=*Deny -> 'com=*Deny' is taken for a command, for it is not exactly *deny
bat=deny -> 'bat=deny' is taken for a command, for it is not exactly *deny
pdf=*allow -> 'pdf=*allow' is taken for a command, for it is not exactly *reg
ps=*registered -> 'ps=*registered' is taken for a command
htm= -> 'htm=' has no command: such files are refused
log=cat %1
-> the command of 'log' has %1 without quotation marks, where a name with blanks adds arguments
"""
# Whole files in the same manner.
DAMAGED_FILES = [
    # In order
    "",
    "; comment\n# comment\n\n[GLOBAL]\r\ncontrol = 2 \r\nListen=127.0.0.1\nParameters=*deny",
    "[Global]\nListen=*local\nPort=80\n[Hosts]\nDefault=*deny\n*local=*allow",
    # Lines that the service ignores
    "Control=1 -> 'Control=1' is ignored: no key, no '=' or no section",
    "[Hots] -> unknown section 'Hots': its lines are ignored\n10.0.0.7=*deny",
    "[Global]\nIcon=2\n[global] -> repeated section 'global': counts as one with line 1",
    "[Global]\nIcon=1\nICON=2 -> repeated key 'ICON': line 2 counts",
    f"[Global]\nPrefix={'p' * 200}-> Prefix: the value is cut after 199 bytes",
    f'[Extensions]\npdf=cat "%1" {"x" * 200}-> pdf: the value is cut after 199 bytes',
    # Hosts
    """[Hosts]
host_allow=1x        -> host_allow: '1x' counts as 1
Default=*Allow
-> Default: '*Allow' counts as absent, for it is not exactly *allow; *deny is in effect""",
    """[Hosts]
Default=             -> Default: '' counts as absent; *allow is in effect
10.0.0.7=*Deny       -> '10.0.0.7=*Deny' lets the peer in, for it is not exactly *deny
10.0.0.8=*deny ; no  -> '10.0.0.8=*deny ; no' lets the peer in, for it is not exactly *deny
pca=deny             -> 'pca=deny' lets the peer in, for it is not exactly *deny
pcb=no               -> 'pcb=no' lets the peer in
pcc=                 -> 'pcc=' lets the peer in
127.0.0.1=*deny
::1=*deny""",
    """[Hosts]
Default=*deny
10.0.0.7=*deny
-> '10.0.0.7=*deny' is what Default says, so the name of the peer decides
pca=*deny
127.0.0.0/8=*allow
-> '127.0.0.0/8' matches no peer: networks are not known, only single addresses
10.0.*=*allow        -> '10.0.*' matches no peer: networks are not known, only single addresses
10.0.0.=*allow       -> '10.0.0.' matches no peer: it is no whole address
10.1=*allow          -> '10.1' matches no peer: write 10.0.0.1
::ffff:10.0.0.7=*allow
-> '::ffff:10.0.0.7' matches no peer: write 10.0.0.7
fd00:0::7=*allow     -> 'fd00:0::7' matches no peer: write fd00::7
fe80::1%1=*allow     -> 'fe80::1%1' matches no peer: write fe80::1%lo
fe80::1=*allow
-> 'fe80::1' matches no peer: a link-local peer is seen with its interface, as in fe80::1%eth0
10.0.0.7:9438=*allow -> '10.0.0.7:9438' matches no peer: it is neither an address nor a name
pc.example.=*allow   -> 'pc.example.' matches no peer: a name has no dot at its ends""",
    "[Hosts]\nDefault=*deny\nFD00::7=*allow\nfe80::1%eth0=*allow\nPC-A.lan=*allow",
    "[Hosts]\nDefault=*deny\n::1=*allow\n-> ::1 may connect and choose parameters: every user of "
    "this machine can run viewers with arguments of his own; set Listen=*local or Parameters=*deny",
    # Extensions
    "[Extensions]\nlog=cat -> the command of 'log' has no %1: the file is put at its end, where a "
    "name with blanks adds arguments",
    """[Extensions]
regx=regedit "%1"    -> the command of 'regx': no program 'regedit' is found
exe=anything "%1"
c=cat "%1\"""",
    # What could steer a terminal
    "[Glo\x1b]2;x\x07bal]-> unknown section 'Glo\\x1B': its lines are ignored",
    "[Global]\n\xff\x9b=\xe2\x80\xae-> unknown key '\\xFF\\x9B' of Global: it is ignored",
]


def damaged_files():
    yield from DAMAGED_FILES
    section, files = "", []
    for line in DAMAGED_LINES.splitlines():
        if line.startswith("["):
            section = line
        elif line.startswith("->"):
            files[-1] += f"\n{line}"
        else:
            files.append(f"{section}\n{line}")
    yield from files


class Checker(TestCase):
    """A service whose settings are the text alone; the registry has a free port for it. It finds
    no desktop of this machine."""

    def serve(self, more="", **options):
        nowhere = {"XDG_DATA_DIRS": "/nowhere", "XDG_DATA_HOME": "/nowhere"}
        service = super().serve(port=free_port(), start=False, environment=nowhere)
        (service.home / "tmp").chmod(0o700)
        (service.home / "config/quorbin/classes.reg").write_text(
            f'REGEDIT4\n[HKEY_CLASSES_ROOT\\Quorbin]\n"Port"="{service.port}"\n'
            '[HKEY_CLASSES_ROOT\\.reg]\n@="known"\n[HKEY_CLASSES_ROOT\\.lame]\n@="lame"\n'
            "[HKEY_CLASSES_ROOT\\known\\shell\\open\\command]\n"
            f'@="{service.home}/view \\"%1\\""\n')
        self.replace(service, more)
        if options.get("start", True):
            service.start()
        return service

    def replace(self, service, settings):
        new = service.home / "new.ini"
        new.write_text(settings, encoding="latin-1", newline="")
        new.chmod(0o600)
        new.replace(service.home / "quorbin.ini")

    def check(self, service, *arguments):
        """The exit status and the output of the checker in the service's environment. Paths in the
        service's directory begin with a slash."""
        done = subprocess.run(
            [BIN / "quorbin-check", "--settings", service.home / "quorbin.ini", *arguments],
            env=service.environment, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, check=False,
            timeout=PATIENCE)
        return done.returncode, done.stdout.decode().replace(str(service.home), "")

    def values(self, service, *arguments):
        """The facts and explanations without their origins, and the exit status."""
        status, output = self.check(service, *arguments)
        return status, dict(re.findall(r"^(.+?): (.*?)(?: \(.*\))?$", output, re.M))


class Warnings(Checker):

    def test_damaged_settings(self):
        """In words, and as JSON."""
        service = self.serve(start=False)
        for text in damaged_files():
            settings, warnings = [], []
            for line in text.split("\n"):
                line, arrow, warning = line.partition("-> ")
                if line or not arrow:
                    settings.append(line)
                if arrow:
                    warnings.append(f"warning: /quorbin.ini:{len(settings)}: {warning}\n")
            if "[Hosts]" not in settings:
                settings += ["[Hosts]", "Default=*deny"]
            with self.subTest(settings=settings):
                self.replace(service, "\n".join(settings) + "\n")
                status = int(bool(warnings))
                self.assertEqual(self.check(service, "--quiet"), (status, "".join(warnings)))
                for scope in [], ["--quiet"]:
                    report = json.loads(self.check(service, "--json", *scope)[1])
                    self.assertEqual(len(report["warnings"]), len(warnings))
                    self.assertEqual(report["status"], status)

    def test_surroundings(self):
        service = self.serve("[Hosts]\nDefault=*deny\n", start=False)
        rows = [  # what is done in the service's directory, the one warning
            ("chmod 662 quorbin.ini",
             "/quorbin.ini: the settings can be written by others than their owner"),
            ("chmod 600 quorbin.ini; chmod 1777 tmp",
             "the directory of the received files, /tmp, can be written by others"),
            ("rmdir tmp", "the directory of the received files, /tmp: No such file or directory"),
            ("touch tmp", "the directory of the received files, /tmp, is none"),
            ("rm tmp; mkdir -m 700 tmp; "
             "printf '[Global]\\nParameters=*deny\\n[Hosts]' >quorbin.ini",
             "section Hosts has neither Default nor host_allow: peers without an entry are let in"),
            ("printf '\\nDefault=*deny\\n' >>quorbin.ini; "
             "sed -i 's/[0-9]*\"$/high\"/' config/quorbin/classes.reg",
             "registry value Quorbin\\\\Port: 'high' is no number: counts as 0"),
            ("sed -i 's/high/70000/' config/quorbin/classes.reg",
             "registry value Quorbin\\\\Port: port 70000 is none: the service ends at its start"),
        ]
        for prepare, warning in rows:
            subprocess.run(["sh", "-ec", prepare], cwd=service.home, check=True)
            self.assertEqual(self.check(service, "--quiet")[1], f"warning: {warning}\n")

        # A port that is taken: by the service itself, and by a stranger.
        self.replace(service, f"[Global]\nPort={service.port}\n[Hosts]\nDefault=*deny\n")
        service.start()
        self.assertEqual(self.check(service, "--quiet")[1], "")
        (service.home / "run").rename(service.home / "other")
        self.assertEqual(self.check(service, "--quiet")[1],
                         f"warning: /quorbin.ini:2: port {service.port} can't be listened on: "
                         "Address already in use\n")

    def test_unreadable_settings_and_wrong_usage(self):
        service = self.serve(start=False)
        settings = service.home / "quorbin.ini"
        settings.unlink()
        for reason in "No such file or directory", "Is a directory":
            status, output = self.check(service)
            self.assertEqual(status, 2)
            self.assertIn(f"warning: /quorbin.ini: can't be read ({reason}): every setting has its "
                          "default, and everybody is let in\n", output)
            self.assertEqual(self.values(service)[1]["Hosts Default"], "*allow")
            self.assertEqual(self.check(service, "--host", "10.0.0.7")[0], 2)
            settings.mkdir(exist_ok=True)
        settings.rmdir()
        self.replace(service, "[Hosts]\nDefault=*deny\n")
        for wrong in (("--host", "a", "--ext", ".b"), ("--name", "x"), ("--prefix", "x"),
                      ("--nothing",), ("--ext", ".x", "--name", "a/b"),
                      ("--ext", ".x", "--name", ""), ("--host", "desk")):
            status, output = self.check(service, *wrong)
            self.assertEqual(status, 2, wrong)
            self.assertTrue(output.startswith("quorbin-check: "), output)
        self.assertEqual(self.check(service, "--version")[0], 0)


class Explanations(Checker):

    def test_values_and_where_they_come_from(self):
        service = self.serve("[Global]\nControl=1\nPrefix=abc\n"
                             "[Extensions]\ntxt=*deny\nDefault=*allow\n[Hosts]\n", start=False)
        # In link mode the section Hosts is not read.
        self.assertEqual(self.check(service)[1], f"""settings: /quorbin.ini
Global Control: 1 (/quorbin.ini:2)
Global Icon: 0 (default)
Global Port: {service.port} (registry, /config/quorbin/classes.reg)
Global Prefix: /abc. (/quorbin.ini:3)
Global Listen: all addresses (default)
Global Parameters: *allow (default)
Hosts host_allow: 3 (/quorbin.ini:2)
Extensions ext_allow: 0 (default)
environment TMP: /tmp (environment TMP)
environment SystemRoot:  (environment SystemRoot)
Extensions Default: *reg (/quorbin.ini:6)
Extensions txt: *deny (/quorbin.ini:5)
""")
        self.assertEqual(json.loads(self.check(service, "--json")[1])["values"][0],
                         {"line": 2, "name": "Control", "origin": "file", "place": "/quorbin.ini",
                          "topic": "Global", "value": "1"})
        self.replace(service, "[Global]\nPort=2147483648\n")
        (service.home / "config/quorbin/classes.reg").unlink()
        self.assertEqual(self.values(service)[1]["Global Port"], "9438")

    def test_hosts_are_treated_as_explained(self):
        """One row for each kind of decision. The name of 127.0.0.1 is localhost."""
        rows = [
            ("Default=*deny", "refused by Default=*deny"),
            ("", "admitted by Default=*allow"),
            ("LocalHost=*Deny", "admitted by localhost=*Deny"),
            ("127.0.0.1=*deny\nlocalhost=*allow", "refused by 127.0.0.1=*deny"),
            ("Default=*deny\n127.0.0.1=*deny\nlocalhost=*allow", "admitted by localhost=*allow"),
            ("127.0.0.1=*allow\n[Global]\nControl=1",
             "refused: the channel has admitted nobody yet"),
            ("host_allow=3\n[Global]\nControl=2", "refused: the channel has admitted nobody yet"),
            ("host_allow=3", "refused: the link channel is closed, so its table stays empty"),
            ("[Global]\nControl=1", "undecided: the table of the running service decides"),
        ]
        for settings, verdict in rows:
            with self.subTest(settings=settings), self.serve(f"[Hosts]\n{settings}\n") as service:
                if verdict.startswith("undecided"):
                    self.assertEqual(service.link(b"execute con 127.0.0.1\n"), b"accepted\n")
                status, explained = self.values(service, "--host", "127.0.0.1")
                self.assertEqual(explained["host verdict"], verdict)
                self.assertEqual(status, 0 if verdict.startswith("admitted") else 1)
                with service.connect() as peer:
                    self.assertEqual(ask(peer, b"$VERSION$:1"),
                                     b"" if verdict.startswith("refused") else b"+OK1.1.03")

    def test_a_host_step_by_step(self):
        service = self.serve("[Hosts]\nhost_allow=1\nDefault=*deny\n10.0.0.7=*deny\nPca=*allow\n"
                             "[Global]\nControl=2\n", start=False)
        self.assertEqual(self.check(service, "--host", " 10.0.0.7", "--name", "pca")[1],
                         """settings: /quorbin.ini
host address:  10.0.0.7 (argument)
host host_allow: 1 (/quorbin.ini:2)
host default: *deny (/quorbin.ini:3)
host entry of the address: *deny (/quorbin.ini:4)
host decides: the name, for the entry of the address is what the default says
host name: pca (argument)
host entry of the name: *allow (/quorbin.ini:5)
host verdict: admitted by pca=*allow
warning: /quorbin.ini:4: '10.0.0.7=*deny' is what Default says, so the name of the peer decides
""")
        other = self.values(service, "--host", "::1", "--name", "other")[1]
        self.assertEqual(other["host entry of the name"], "none")

        # Nothing here could be a name.
        self.replace(service, "[Hosts]\nHOST_ALLOW=1\nDEFAULT=*deny\n10.0.0.8=*allow\n"
                     "127.1=*allow\nfd00::7=*allow\n*LOCAL=*allow\n")
        nameless = self.values(service, "--host", "10.0.0.7", "--name", "pca")[1]
        self.assertEqual(nameless["host name"], "not looked up: no entry could match one")

    def test_extensions_are_treated_as_explained(self):
        """One row for each kind of decision."""
        denied, wrong = "refused: extension denied", "refused: wrong extension"
        rows = [  # settings, extension, verdict
            ("Default=*deny", ".reg", denied),
            ("eg=cat", "reg", wrong),
            ("", ".EXE", "opened: the received file is the program that runs"),
            ("", ".lame", wrong),
            ("Default=*deny\nreg=*reg", ".reg", "opened"),
            ('txt=VIEW "%1" first', ".txt", "opened"),
            ("txt=", ".txt", "refused when the content comes: the entry has no command"),
            ("txt=*allow", ".txt", "received, but there is no such program to open it"),
        ]
        service = self.serve()
        for settings, ext, verdict in rows:
            settings = settings.replace("VIEW", f"{service.home}/view")
            # Before a program it would be the program.
            prefix = "" if ext == ".EXE" else "-p "
            with self.subTest(settings=settings, ext=ext), service.connect() as peer:
                self.replace(service, f"[Extensions]\n{settings}\n[Hosts]\nDefault=*allow\n")
                status, explained = self.values(service, "--ext", ext, "--name", "f",
                                                "--prefix", prefix, "--suffix", "-s")
                self.assertEqual(explained["extension verdict"], verdict)
                self.assertEqual(status, 0 if verdict.startswith("opened") else 1)
                refused = verdict in (denied, wrong)
                self.assertEqual(ask(peer, f"$EXT$:{ext}".encode()), b"-EXT" if refused else b"+OK")
                if refused:  # by the name alone as well
                    with service.connect() as other:
                        self.assertEqual(ask(other, f"$FILE$:f{ext}".encode(), DATA), b"-KDO")
                    continue
                reply = ask(peer, b"$FILE$:f", f"$KDOPRF$:{prefix}".encode(), b"$KDOEXT$:-s", DATA)
                self.assertEqual(reply, b"-KDO" if verdict.startswith("refused") else b"+OK")
                if reply == b"+OK":
                    before = len(service.shown())
                    self.assertEqual(ask(peer, b"$EOF$"), b"+OK")
                    # What is started shows in the field kdo, and its task number in resu.
                    service.eventually(
                        lambda before=before: b"resu: started task " in service.shown()[before:])
                    self.assertIn(f"\nkdo: {explained['extension command line']}\n",
                                  service.shown().decode().replace(str(service.home), ""))

    def test_denied_parameters_are_treated_as_explained(self):
        service = self.serve("[Global]\nParameters=*deny\n[Hosts]\nDefault=*allow\n")
        self.assertEqual(self.values(service, "--ext", ".reg")[1]["extension verdict"], "opened")
        for text in "--prefix", "--suffix":
            status, explained = self.values(service, "--ext", ".reg", text, "x")
            self.assertEqual(explained["extension verdict"], "refused: Parameters is *deny, so the "
                             "sender's texts draw -PARAM")
            self.assertEqual(status, 1)
        with service.connect() as peer:
            self.assertEqual(ask(peer, b"$EXT$:.reg", b"$KDOEXT$:x"), b"-PARAM")
            self.assertEqual(ask(peer, b"$KDOPRF$:x"), b"-PARAM")

    def test_an_extension_step_by_step(self):
        service = self.serve("[Hosts]\nDefault=*deny\n", start=False)
        arguments = ("--ext", ".reg", "--name", "/h/a b ", "--prefix", "-x ")
        self.assertEqual(self.check(service, *arguments)[1], """settings: /quorbin.ini
extension asked: .reg (argument)
extension ext_allow: 0 (default)
extension default: *reg (default)
extension entry: none
extension class: known (registry, /config/quorbin/classes.reg)
extension open command: /view "%1" (registry, /config/quorbin/classes.reg)
extension command line: /view -x "/tmp/f$~.a b"
extension argument 0: /view
extension argument 1: -x
extension argument 2: /tmp/f$~.a b
extension program: /view
extension verdict: opened
""")
        report = json.loads(self.check(service, *arguments, "--json")[1])
        self.assertEqual(report["explanation"][-1], {"name": "verdict", "origin": "decision",
                                                     "topic": "extension", "value": "opened"})
        self.assertEqual(self.values(service, "--ext", "reg")[1]["extension entry"],
                         "not looked for: an extension begins with a dot")

    def test_session_of_the_readme(self):
        """It is the checker's output on the settings as shipped and the lines added there."""
        settings = (ROOT / "packaging/quorbin.ini").read_text()
        for old, new in (
                ("\n*local=*allow\n", "\n*local=*allow\n10.0.0.0/24=*allow\n10.0.0.9=*Deny\n"),
                ("\nexe=*deny\n", '\nexe=*deny\nlog=les "%1"\n'),
                ("\nPort=9438\n", "\nPort=0\n")):  # of the registry, one that is free
            self.assertIn(old, settings)
            settings = settings.replace(old, new)
        service = self.serve(settings, start=False)
        readme = (ROOT / "README.md").read_text().replace("/etc/quorbin", "")
        for arguments in ["--quiet"], ["--host", "10.0.0.9"]:
            lines = self.check(service, *arguments)[1].splitlines()
            self.assertGreaterEqual(len(lines), 3)
            for line in lines:
                self.assertIn(f"\n{line}\n", readme)


if __name__ == "__main__":
    main()
