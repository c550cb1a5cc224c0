#!/usr/bin/env python3
"""The settings survive an installation from the source."""

import os
import pathlib
import subprocess
import tempfile

from service import ROOT, TestCase, main


class Install(TestCase):

    def test_keeps_edited_settings(self):
        stage = pathlib.Path(self.enterContext(tempfile.TemporaryDirectory()))
        directory = stage / "etc/quorbin"
        present, new = directory / "quorbin.ini", directory / "quorbin.ini.new"
        shipped = (ROOT / "packaging/quorbin.ini").read_text()

        def install():
            subprocess.run(["cmake", "-Ddirectory=/etc/quorbin", "-P",
                            ROOT / "packaging/install-settings.cmake"], check=True,
                           stdout=subprocess.DEVNULL, env={**os.environ, "DESTDIR": str(stage)})

        for _ in range(2):
            install()
            self.assertEqual(present.read_text(), shipped)
            self.assertFalse(new.exists())
        present.write_text("; edited")
        install()
        self.assertEqual(present.read_text(), "; edited")
        self.assertEqual(new.read_text(), shipped)
        new.unlink()
        present.unlink()
        present.symlink_to("/nowhere/settings")  # which are not there yet
        install()
        self.assertTrue(present.is_symlink())
        self.assertEqual(new.read_text(), shipped)


main()
