#!/usr/bin/env python3
"""Whether packaging/windows/check-pins finds an old pin, and does not pass when it
cannot know.

    tst_checkpins.py SOURCE
"""
import contextlib
import functools
import http.server
import os
import pathlib
import subprocess
import sys
import tempfile
import threading
import unittest

TOOLS = pathlib.Path(sys.argv.pop(1)) / "packaging" / "windows"
CURRENT, OLD, USAGE, UNKNOWN = 0, 1, 2, 77
# Nothing listens there.
NOWHERE = "http://127.0.0.1:9"


def pinned():
    lines = subprocess.run([TOOLS / "build-sdk", "--print-pins"], check=True, capture_output=True, text=True).stdout
    fields = [line.split() for line in lines.splitlines()]
    versions = {line[1]: line[2] for line in fields if line[0] == "source"}
    return versions, {line[2]: line[1] for line in fields if line[0] == "file"}


VERSIONS, HASHES = pinned()


def paragraph(name, version, hashes):
    lines = [f" {digest} 1234 {file}" for file, digest in hashes.items()]
    lines.append(f" {'0' * 64} 99 {name}.orig.tar.gz.asc")
    return "\n".join([f"Package: {name}", f"Binary: lib{name}", f"Version: {version}", "Checksums-Sha256:", *lines,
                      f"Directory: pool/{name}"]) + "\n"


def paragraph_of_pin(name):
    upstream = VERSIONS[name].rsplit("-", 1)[0]
    return paragraph(name, VERSIONS[name], {file: digest for file, digest in HASHES.items()
                                            if file.startswith(f"{name}_{upstream}")})


def check(*arguments, mirror=NOWHERE):
    environment = os.environ | {"HALDEN_DEBIAN_MIRROR": mirror, "HALDEN_DEBIAN_SECURITY_MIRROR": mirror}
    done = subprocess.run([TOOLS / "check-pins", *arguments], check=False, capture_output=True, text=True, env=environment)
    return done.returncode, done.stdout + done.stderr


class QuietHandler(http.server.SimpleHTTPRequestHandler):
    def log_message(self, *_):
        pass


@contextlib.contextmanager
def web_server(folder):
    handler = functools.partial(QuietHandler, directory=str(folder))
    with http.server.ThreadingHTTPServer(("127.0.0.1", 0), handler) as server:
        threading.Thread(target=server.serve_forever, daemon=True).start()
        yield f"http://127.0.0.1:{server.server_port}"
        server.shutdown()


class CheckPins(unittest.TestCase):
    def setUp(self):
        temporary = tempfile.TemporaryDirectory()
        self.addCleanup(temporary.cleanup)
        self.folder = pathlib.Path(temporary.name)

    def index(self, suite, *paragraphs):
        path = self.folder / suite
        path.write_text("\n".join(paragraphs), encoding="utf-8")
        return f"--index={suite}={path}"

    def pins_index(self, suite="bookworm"):
        return self.index(suite, paragraph("apt", "2.6.1", {}), *map(paragraph_of_pin, VERSIONS))

    def test_pins_that_debian_has_are_current(self):
        code, text = check(self.pins_index())
        self.assertEqual(code, CURRENT, text)
        for name, version in VERSIONS.items():
            self.assertIn(f"{name} {version}", text)

    def test_older_versions_elsewhere_do_not_matter(self):
        older = self.index("bookworm-updates", paragraph("openssl", "3.0.9-1", {}), paragraph("qt6-base", "6.4.2+dfsg-9", {}))
        for indices in ([older, self.pins_index()], [self.pins_index(), older]):
            code, text = check(*indices)
            self.assertEqual(code, CURRENT, text)

    def test_newer_versions_are_named_with_their_hashes(self):
        for name, newer in (("openssl", "3.0.100-1~deb12u1"), ("qt6-base", VERSIONS["qt6-base"] + "+deb12u1")):
            digest = "ab" * 32
            security = self.index("bookworm-security", paragraph(name, newer, {f"{name}_{newer}.dsc": digest}))
            for indices in ([security, self.pins_index()], [self.pins_index(), security]):
                code, text = check(*indices)
                self.assertEqual(code, OLD, text)
                self.assertIn(f"{name} {newer} (in bookworm-security), newer than {VERSIONS[name]}", text)
                self.assertIn(f"{digest}  {name}_{newer}.dsc", text)
                self.assertNotIn(".asc", text)

    def test_a_release_is_newer_than_what_was_tried_before_it(self):
        newer = VERSIONS["openssl"].replace("~", "")
        code, text = check(self.pins_index(), self.index("bookworm-security", paragraph("openssl", newer, {})))
        self.assertEqual(code, OLD, text)
        self.assertIn(newer, text)

    def test_a_package_that_is_not_there_is_no_good_news(self):
        code, text = check(self.index("bookworm", paragraph_of_pin("openssl")))
        self.assertEqual(code, OLD, text)
        self.assertIn("no source package qt6-base", text)

    def test_a_pin_that_debian_never_had_is_found(self):
        older = self.index("bookworm", paragraph("openssl", "3.0.1-1", {}), paragraph_of_pin("qt6-base"))
        code, text = check(older)
        self.assertEqual(code, OLD, text)
        self.assertIn(f"openssl {VERSIONS['openssl']} in build-sdk is no version of Debian's", text)

    def test_a_hash_that_debian_did_not_sign_is_found(self):
        text = paragraph_of_pin("openssl")
        file = next(name for name in HASHES if name.startswith("openssl_") and name.endswith(".dsc"))
        other = self.index("bookworm", text.replace(HASHES[file], "cd" * 32), paragraph_of_pin("qt6-base"))
        code, text = check(other)
        self.assertEqual(code, OLD, text)
        self.assertIn(f"{'cd' * 32}  {file}", text)

    def test_an_archive_out_of_reach_is_told(self):
        code, text = check()
        self.assertEqual(code, UNKNOWN, text)
        self.assertIn("NOT KNOWN", text)
        self.assertIn(NOWHERE, text)

    def test_lists_without_debians_signature_are_refused(self):
        for suite in ("bookworm", "bookworm-updates", "bookworm-security"):
            folder = self.folder / "dists" / suite
            folder.mkdir(parents=True)
            (folder / "InRelease").write_text(f"Origin: Debian\nSuite: {suite}\nCodename: {suite}\n", encoding="utf-8")
        with web_server(self.folder) as mirror:
            code, text = check(mirror=mirror)
        self.assertEqual(code, OLD, text)
        self.assertIn("apt does not take the archive's lists", text)

    def test_a_wrong_call_checks_nothing(self):
        self.assertEqual(check("--indices=bookworm")[0], USAGE)


if __name__ == "__main__":
    unittest.main()
