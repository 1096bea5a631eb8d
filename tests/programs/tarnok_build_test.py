# SPDX-License-Identifier: MIT
"""Runs the front end for build systems: the banks, events and faults that a build script sees."""

import json
import os
import pty
import re
import signal
import subprocess
import time
import unittest

from json_schema import validated
from program_case import ALL_WRITTEN, TIMEOUT, ProgramCase, write_wav

DONE, FAILED, BAD_ARGUMENTS = 0, 1, 2

PROFILE = "<profile><format>{}</format><quality>{}</quality><flags><dont_loop/></flags></profile>"


class BuildToolCase(ProgramCase):
    def tool(self, *arguments, **options):
        """Exit status, standard output, standard error without the folder of the test."""
        status, output, errors = self.run_program(*arguments, program="tarnok-build", stderr=subprocess.PIPE, **options)
        return status, (output or "").replace(f"{self.work}/", ""), errors.replace(f"{self.work}/", "")

    def assert_tool(self, *arguments, **options):
        status, output, errors = self.tool(*arguments, **options)
        self.assertEqual((status, errors), (DONE, ""), output)
        return output

    def events(self, *arguments, status=DONE):
        found, output, _ = self.run_program("run", *arguments, "--log", "json", program="tarnok-build",
                                            stderr=subprocess.PIPE)
        self.assertEqual(found, status, output)
        return [validated("tarnok-build-log", json.loads(line)) for line in output.splitlines()]

    def write(self, name, text):
        (self.work / name).parent.mkdir(parents=True, exist_ok=True)
        (self.work / name).write_text(text)
        return self.work / name

    def project(self, name, *sounds, head="<file_name>own/p.tnb</file_name>", profile=PROFILE.format("Vorbis", 30)):
        content = "".join(f"<subsound>{s if '<' in s else f'<file>{s}</file>'}</subsound>" for s in sounds)
        return self.write(name, f"<soundbank>{head}{profile}<content>{content}</content></soundbank>")


class RunTest(BuildToolCase):
    def setUp(self):
        super().setUp()
        write_wav(self.work / "in/b.wav", channels=2, frequency=330)
        write_wav(self.work / "in/c d.wav", seconds=0.5, rate=22050, frequency=550)
        write_wav(self.work / "in/deep/e.wav", frequency=220)
        self.write("in/notes.md", "no sound")

    def test_builds_the_same_banks_as_the_console_tool(self):
        self.write("l.lst", "a.wav,quality=40\nin/b.wav,ksound_loop_off\nin/c d.wav\n")
        self.write("v.prof", PROFILE.format("Vorbis", 30))
        self.write("key", "Bassgeige \t\r\nno key\n")
        overridden = "<flags><add><dont_loop/></add><remove><write_peak_volume/></remove></flags><file>a.wav</file>"
        self.project("p.tnproj", overridden, "<file>in/b.wav</file><file>a.wav</file>")
        for source, theirs, ours in (
            ("a.wav", "", ""),
            ("./in", "-format vorbis -quality 20 -no_loop", "-f Vorbis -q 20 --no-loop"),
            ("./in", "-recursive -format opus -no_guid", "-r --format=opus --no-guid"),
            ("./in", "-build_mode i -format kadpcm", "--interleave --format kadpcm"),
            ("l.lst", "-format vorbis", "--format vorbis --jobs 1 --cache-dir new/cache"),
            ("l.lst", "-profile v.prof -write_peak_volume", "v.prof --write-peak-volume --rebuild"),
            ("p.tnproj", "", ""),
            ("p.tnproj", "-encryption_key Bassgeige -optimize_samplerate", "--key-file key --optimize-sample-rate"),
            ("p.tnproj", "-quality 0 -no_seek", "--quality 0 --xma-disable-seeking"),
        ):
            with self.subTest(source=source, options=ours):
                self.assert_builds(source, "-o", "x.tnb", *theirs.split())
                expected = (self.work / "x.tnb").read_bytes()
                (self.work / "x.tnb").unlink()
                self.assert_tool("run", self.work / source, "-o", "x.tnb", *ours.split())
                self.assertEqual((self.work / "x.tnb").read_bytes(), expected)
        self.assertTrue((self.work / "new/cache").is_dir())
        self.assert_tool("run", "a.wav", "-o", "piped.tnb", "--key-file", "-", typed="Bassgeige\n")
        self.assertTrue(self.info(self.work / "piped.tnb", key="Bassgeige")["encrypted"])

    def test_joins_all_inputs_in_their_order(self):
        self.project("p.tnproj", "a.wav")
        self.write("l.lst", "b.wav\n")
        write_wav(self.work / "b.wav")
        self.write("more", "in\n\np.tnproj")
        output = self.assert_tool("run", "l.lst", "--input-list", "more", "--sort", "-r")
        self.assertRegex(output, r"^own/p.tnb: 5 sounds, 4 encoded, 1 cached, \d+ bytes\n$|^own/p.tnb: 5 sounds, 5 encoded")
        bank = self.info(self.work / "own/p.tnb")
        self.assertEqual([sound["name"] for sound in bank["sounds"]], ["b", "b", "c d", "e", "a"])
        self.assertEqual((bank["codec"], bank["quality"]), ("vorbis", 30))

    def test_writes_to_exactly_the_path_that_is_given(self):
        self.project("p.tnproj", "a.wav")
        for path in ("./x.tnb", "a.b/../c.d/e.f.g", "plain", ".hidden", "dot.", "new/deep/ä b.tnb", self.work / "abs.v1.tnb"):
            with self.subTest(path=path):
                self.assert_tool("run", "p.tnproj", "--quiet", "-o", path, "--header", f"{path}.h")
                self.assertGreater(os.stat(self.work / os.path.normpath(path)).st_size, 0)
                self.assertIn("_COUNT 1", (self.work / os.path.normpath(f"{path}.h")).read_text())

    def test_replaces_nothing_but_banks_and_headers(self):
        self.project("p.tnproj", "a.wav")
        self.project("other.tnproj", "a.wav")
        self.write("l.lst", "a.wav\n")
        self.write("own.h", "int mine;\n")
        self.write("key", "secret\n")
        write_wav(self.work / "other.wav")
        for arguments, reason in (
            (["p.tnproj", "-o", "p.tnproj"], "it is what this run is built from"),
            (["p.tnproj", "-o", "other.tnproj"], "it is a project"),
            (["l.lst", "-o", "l.lst"], "it is what this run is built from"),
            (["l.lst", "--key-file", "key", "-o", "key"], "it is what this run is built from"),
            (["l.lst", "-o", "other.wav"], "it is a sound"),
            (["l.lst", "-o", "a.wav"], "this is one of the bank's own source files"),
            (["l.lst", "-o", "in"], "it is a folder"),
            (["l.lst", "-o", "x.tnb", "--header", "own.h"], "was not generated with a bank"),
            (["l.lst"], "name the bank with --output"),
            (["l.lst", "-o", "x.tnb", "--depfile", "a.wav"], "is not replaced by a dependency file"),
            (["l.lst", "-o", "x.tnb", "--header", "x.h", "--depfile", "x.h"], "is not replaced by a dependency file"),
            (["l.lst", "-o", "x.tnb", "--depfile", "x.tnb", "--depfile-target", "x"], "is not replaced by a dependency"),
            (["l.lst", "-o", "x.tnb", "--depfile", "x.d", "--depfile-target", "x\ny"], "it contains a line feed"),
            (["l.lst", "-o", "x.tnb", "--depfile", "/dev/full"], "'/dev/full' can't be written: No space left"),
        ):
            with self.subTest(arguments=arguments):
                former = {path: path.read_bytes() for path in self.work.iterdir() if path.is_file()}
                status, output, errors = self.tool("run", *arguments)
                self.assertEqual((status, output), (FAILED, ""))
                self.assertIn(reason, errors)
                for made in ("x.tnb", "x.h"):
                    (self.work / made).unlink(missing_ok=True)
                self.assertEqual({path: path.read_bytes() for path in self.work.iterdir() if path.is_file()}, former)

    def test_reports_events_by_its_schema(self):
        first = self.events("in", "-o", "x.tnb", "-f", "vorbis", "--header", "x.h", "--sort")
        self.assertEqual((first[0]["event"], first[0]["sounds"], first[0]["quality"]), ("begin", 2, 100))
        states = [event["state"] for event in first if event.get("sound") == 1]
        self.assertEqual((states[0], states[-2:]), ("decoding", ["finished", "stored"]))
        stored = [event for event in first if event.get("state") == "stored"]
        self.assertEqual([event["name"] for event in stored], ["b", "c d"])
        facts = self.info(self.work / "x.tnb")["sounds"]
        for event, fact in zip(stored, facts, strict=True):
            self.assertGreaterEqual(event["bytes"], fact["bytes"])
            self.assertEqual(event["source"], "encoded")
        end = first[-1]
        self.assertEqual((end["result"], end["encoded"], end["cached"]), ("written", 2, 0))
        self.assertEqual(end["bytes"], (self.work / "x.tnb").stat().st_size)

        node = (self.work / "x.tnb").stat()
        again = self.events("in", "-o", "x.tnb", "-f", "vorbis", "--sort", "--keep-unchanged")
        self.assertEqual((again[-1]["result"], again[-1]["cached"]), ("unchanged", 2))
        self.assertEqual((self.work / "x.tnb").stat().st_mtime_ns, node.st_mtime_ns)
        self.assertEqual(self.events("in", "-o", "x.tnb", "-f", "vorbis", "--sort")[-1]["result"], "written")

        # A sound that no other one can be interleaved with passes the check and fails in the build.
        wide = [write_wav(self.work / f"wide/{number}.wav", channels=20) for number in range(2)]
        self.project("wide.tnproj", "".join(f"<file>{path}</file>" for path in wide), "a.wav")
        failed = self.events("wide.tnproj", "-o", "x.tnb", status=FAILED)
        event = next(event for event in failed if event.get("state") == "failed")
        self.assertEqual((event["sound"], event["code"]), (0, 11))
        self.assertEqual(failed[-1]["result"], "failed")
        kept = self.events("wide.tnproj", "-o", "x.tnb", "--ignore-errors")
        self.assertEqual((kept[-1]["result"], kept[-1]["failed"]), ("written", 1))
        refused = self.events("gone.wav", "-o", "x.tnb", status=FAILED)
        self.assertEqual([(event["event"], event.get("code")) for event in refused],
                         [("fault", "not-found"), ("end", None)])

    def test_never_waits_for_a_sound(self):
        self.write("l.lst", "a.wav\ngone.wav\n,,\nin/b.wav\n")
        status, output, errors = self.tool("run", "l.lst", "-o", "x.tnb")
        self.assertEqual((status, output), (FAILED, ""))
        self.assertRegex(errors, r"\Al.lst:2: error: 'gone.wav': no such file.*\nl.lst:3: error: a line of commas.*\n\Z")
        self.assertEqual(self.banks(), [])
        status, output, errors = self.tool("run", "l.lst", "-o", "x.tnb", "--ignore-errors")
        self.assertEqual(status, DONE, errors)
        self.assertEqual([sound["name"] for sound in self.info(self.work / "x.tnb")["sounds"]], ["a", "b"])
        self.assertEqual(self.tool("run", "in/notes.md", "-o", "x.tnb", "--ignore-errors")[0], FAILED)

    def test_refuses_wrong_arguments(self):
        self.write("key", "\n")
        for arguments in ([], ["build"], ["run"], ["run", "a.wav", "-q", "101"], ["run", "a.wav", "-f", "mp3"],
                          ["run", "a.wav", "-j", "0"], ["run", "a.wav", "--nonsense"], ["check", "a.wav", "-o", "x"],
                          ["run", "a.wav", "--depfile-target", "x"], ["run", "a\udcff.wav"]):
            with self.subTest(arguments=arguments):
                status, output, errors = self.tool(*arguments)
                self.assertEqual((status, output), (BAD_ARGUMENTS, ""))
                self.assertTrue(errors)
        self.assertEqual(self.tool("run", "a.wav", "-o", "x.tnb", "--key-file", "key"),
                         (FAILED, "", "key: error: no key in the first line of key\n"))
        self.assertRegex(self.assert_tool("--version"), r"\Atarnok-build \d+\.\d+\.\d+\n\Z")
        self.assertEqual(self.banks(), [])
        with open("/dev/full", "w") as full:
            for arguments, expected in ((["depends", "a.wav"], FAILED), (["run", "a.wav", "-o", "x.tnb"], DONE)):
                status, _, errors = self.tool(*arguments, stdout=full)
                self.assertEqual((status, errors), (expected, "tarnok-build: can't write to standard output\n"))

    def test_keeps_the_key_to_itself(self):
        self.write("key", "Bassgeige\n")
        self.project("p.tnproj", "a.wav")
        told = [self.tool("run", "p.tnproj", "--key-file", "key", "--log", "json", "--depfile", "x.d"),
                self.tool("depends", "p.tnproj", "--key-file", "key", "--json"), (self.work / "x.d").read_text()]
        self.assertNotIn("Bassgeige", str(told))
        self.assertIn("work/key", str(told))

    def test_shows_its_progress_on_a_terminal_only(self):
        def shown(*arguments):
            master, slave = pty.openpty()
            with self.start("run", "in", "-o", "x.tnb", "--rebuild", *arguments, program="tarnok-build", stderr=slave) as tool:
                os.close(slave)
                output = b""
                try:
                    while piece := os.read(master, 4096):
                        output += piece
                except OSError:
                    pass
                self.assertEqual(tool.wait(TIMEOUT), DONE)
            os.close(master)
            return output

        self.assertRegex(shown("-f", "vorbis"), rb"\A\r\[[#.]{30}\] +\d+ %  \d of 2 sounds.*\r\x1b\[K\Z")
        self.assertEqual(shown("--quiet"), b"")

    def test_a_signal_leaves_the_former_bank(self):
        for number in range(6):
            write_wav(self.work / f"long/{number}.wav", seconds=60, channels=2, frequency=100 + number)
        self.write("x.tnb", "")
        with self.start("run", "long", "-o", "x.tnb", "-f", "vorbis", "--log", "json", program="tarnok-build") as tool:
            while '"encoding"' not in tool.stdout.readline():
                pass
            tool.send_signal(signal.SIGTERM)
            output = tool.stdout.read()
            self.assertEqual(tool.wait(TIMEOUT), -signal.SIGTERM)
        self.assertIn('"result":"failed"', output)
        self.assertIn("stopped by SIGTERM", output)
        self.assertEqual((self.work / "x.tnb").read_text(), "")
        self.assertEqual([path.name for path in self.work.iterdir() if path.name.startswith(".")], [])


class CheckTest(BuildToolCase):
    def check(self, *inputs):
        """Line, severity and text of each fault, as text and JSON agree on them."""
        status, text, errors = self.tool("check", *inputs)
        self.assertEqual(errors, "")
        json_status, output, _ = self.run_program("check", "--json", *inputs, program="tarnok-build",
                                                  stderr=subprocess.PIPE)
        faults = validated("tarnok-build-check", json.loads(output))["faults"]
        self.assertEqual({status, json_status}, {FAILED if faults else DONE})
        lines = [f"{fault['file']}{':%d' % fault['line'] if 'line' in fault else ''}: {fault['severity']}: {fault['text']}"
                 for fault in faults]
        self.assertEqual(text.splitlines(), [line.replace(f"{self.work}/", "") for line in lines])
        return [(fault.get("line"), fault["severity"], fault["code"], fault["text"]) for fault in faults]

    def assert_faults(self, found, expected):
        self.assertEqual([fault[:3] for fault in found], [fault[:3] for fault in expected], found)
        for (*_, text), (*_, part) in zip(found, expected):
            self.assertIn(part, text)

    def test_finds_what_is_wrong_with_a_list(self):
        for name in ("KICK.WAV", "Snare.wav", "noext", "a,b.wav", "sub/Drum.wav"):
            write_wav(self.work / name)
        self.write("text.wav", "no sound")
        (self.work / "link.wav").symlink_to("noext")
        wrong = (
            ("a.wav,quality=40,ksound_loop_off", ()),
            ("a.wav,quality=101", ("warning", "quality", "'quality=101' is above 100")),
            ("a.wav, quality=40", ("warning", "unknown-option", "write it without blanks")),
            ("a.wav,quality=40 ", ("warning", "unknown-option", "write it without blanks")),
            ("a.wav,Quality=40", ("warning", "unknown-option", "write it in lowercase")),
            ("a.wav,KSOUND_LOOP_OFF", ("warning", "unknown-option", "write it in lowercase")),
            ("a.wav,quality=-1", ("warning", "unknown-option", "N from 1 to 100")),
            ("a.wav,quality=0", ("warning", "quality", "means the quality of the bank")),
            ("a.wav,quality=4,quality=5", ("warning", "repeated-option", "only the first counts")),
            ("a.wav,loop", ("warning", "unknown-option", "the options are quality=N and ksound_loop_off")),
            ("# drums", ("error", "comment", "a list has no comments")),
            ("   ", ("error", "blanks", "a line of blanks doesn't end the list")),
            (",,", ("error", "no-path", "a line of commas")),
            ("quality=40,a.wav", ("error", "no-path", "the path must come first")),
            ("gone.wav", ("error", "not-found", "'gone.wav': no such file; tarnokexcl would wait for it")),
            ("kick.wav", ("error", "other-case", "KICK.WAV is there: suffixes must be lowercase")),
            ("KICK.WAV", ("error", "other-case", "suffixes must be lowercase; rename it to KICK.wav")),
            ("snare.wav", ("error", "other-case", "no such file; Snare.wav is there")),
            ("SUB/drum.wav", ("error", "other-case", "sub/Drum.wav is there")),
            ("a.wav ", ("error", "blanks", "without the blanks at its ends")),
            ("a,b.wav", ("error", "comma", "can't contain a comma")),
            ("noext", ("error", "no-suffix", "needs a suffix")),
            ("link.wav", ("error", "no-suffix", "needs a suffix")),
            ("text.wav", ("error", "not-a-sound", "not a sound of a known kind; tarnokexcl would wait")),
            ("sub", ("error", "not-a-sound", "it is a folder")),
            (f"{self.work}/a.wav", ()),
        )
        listed = self.write("l.lst", "".join(line + "\n" for line, _ in wrong) + "\n\na.wav\nb.wav\n")
        found = [fault for fault in self.check(listed) if fault[3] != "'b.wav' is no option and is ignored; the options "
                 "are quality=N and ksound_loop_off" and "'a.wav' is no option" not in fault[3]]
        expected = [(number, *fault) for number, (_, fault) in enumerate(wrong, 1) if fault]
        expected.append((len(wrong) + 1, "error", "ends-early", "lines after it that are not read: 2"))
        self.assert_faults(found, expected)

        for content, expected in ((b"", [(None, "error", "no-sounds", "names no sound")]),
                                  (b"\xef\xbb\xbfa.wav\r\na.wav", []), (b"a.wav\n\n \n", []),
                                  (b"\xff.wav\n", [(1, "error", "not-utf8", "is not UTF-8")])):
            listed.write_bytes(content)
            self.assert_faults(self.check(listed), expected)

    def test_finds_in_projects_what_the_console_tool_stumbles_over(self):
        name, sound = "<file_name>x.tnb</file_name>", "<subsound><file>a.wav</file></subsound>"
        content = f"<content>{sound}</content>"
        profile = "<profile><format>PCM</format>{}</profile>"
        write_wav(self.work / "KICK.WAV")
        write_wav(self.work / "p/beside.wav")

        def of_sound(flags):
            return f"{name}<content><subsound><flags>{flags}</flags><file>a.wav</file></subsound></content>"

        for body, expected in (
            (name + content, None),
            (f"<!-- c -->{name}{profile.format('<flags><dont_loop/><x>write_peak_volume</x></flags>')}{content}", None),
            (of_sound("<add><dont_loop/></add><remove><x>optimize_samplerate</x></remove>"), None),
            (name + profile.format("<quality>many</quality>") + content, "warning quality"),
            (name + "<comment>x</comment>" + content, "warning ignored-element"),
            (content, "error missing-element"),
            (name, "error no-sounds"),
            (name + "<content/>", "error unexpected-element"),
            (name + "<encryption_key/>" + content, "error unexpected-element"),
            (name + "<extra><a>b</a></extra>" + content, "error unexpected-element"),
            (name + content + "text", "error xml"),
            (name + f"<content>text{sound}</content>", "error xml"),
            (name + "<content><subsound><file>a.wav<!-- --></file></subsound></content>", "error xml"),
            (name + "<content><subsound><file>a.<![CDATA[wav]]></file></subsound></content>", "error xml"),
            (name + content + "<broken>", "error xml"),
            (name + content.replace("file>", "path>"), "error unexpected-element"),
            (name + content.replace("a.wav", "gone.wav"), "error not-found"),
            (name + content.replace("a.wav", "KICK.WAV"), "error other-case"),
            (name + content.replace("</content>", "<subsound><file>beside.wav</file></subsound></content>"),
             "error not-found"),
            (name + content.replace("<file>", "<file/><file>"), "error unexpected-element"),
            (name + profile.format("<quality>101</quality>") + content, "error quality"),
            (name + profile.format("<flags/>") + content, "error unexpected-element"),
            (name + profile.format("<flags><loud/></flags>") + content, "error unknown-word"),
            (name + "<profile><format>MP3</format></profile>" + content, "error unknown-word"),
            (of_sound("<add><loud/></add>"), "error unknown-word"),
            (of_sound("<add><tnb5_dont_write_names/></add>"), "error unknown-word"),
            (of_sound("<set><dont_loop/></set>"), "error unexpected-element"),
        ):
            with self.subTest(body=body):
                path = self.write("p/x.tnproj", f"<?xml version='1.0'?>\n<soundbank>\n{body}\n</soundbank>\n")
                found = self.check(path)
                self.assertEqual({f"{severity} {code}" for _, severity, code, _ in found} - {"error no-sounds"},
                                 {expected} - {None, "error no-sounds"}, found)
                self.assertTrue(all(line in (1, 2, 3, 4) for line, *_ in found), found)
                # It finds an error exactly where the console tool can't build the whole bank.
                status = self.run_tool(path, "-o", "out.tnb")[0]
                self.assertEqual(status == ALL_WRITTEN, not any(fault[1] == "error" for fault in found))
        self.assertIn("not to the project", str(self.check(self.project("p/y.tnproj", "a.wav", "beside.wav"))))

    def test_finds_faults_of_profiles_and_folders_and_missing_inputs(self):
        write_wav(self.work / "in/KICK.WAV")
        self.write("in/notes.md", "no sound")
        self.write("in/bad.wav", "no sound")
        self.write("v.prof", PROFILE.format("Vorbis", 30))
        self.write("bad.prof", PROFILE.format("Vorbis", 300))
        self.assert_faults(self.check("v.prof", "a.wav"), [])
        self.assert_faults(self.check("bad.prof"), [(1, "error", "quality", "outside 0 to 100")])
        self.assertEqual({fault[:3] for fault in self.check("in")},
                         {(None, "error", "other-case"), (None, "error", "not-a-sound")})
        self.assert_faults(self.check("A.wav", "v.prof"), [(None, "error", "other-case", "a.wav is there")])
        (self.work / "empty").mkdir()
        self.assert_faults(self.check("empty"), [(None, "error", "no-sounds", "no sound that can be built")])
        self.project("one.tnproj", "a.wav")
        self.assert_faults(self.check("one.tnproj", "one.tnproj"), [(None, "error", "several-projects", "one project")])


class DependsTest(BuildToolCase):
    def test_lists_everything_that_determines_the_bank(self):
        write_wav(self.work / "in/deep/b.wav")
        write_wav(self.work / "odd $name#1.wav")
        self.write("l.lst", "odd $name#1.wav,quality=7,ksound_loop_off\n")
        self.write("v.prof", PROFILE.format("Opus", 30))
        self.write("key", "secret\n")
        arguments = ["l.lst", "v.prof", "in", "-r", "--key-file", "key", "-o", "x.tnb", "--no-guid"]
        files = ["l.lst", "v.prof", "key", "odd $name#1.wav", "in/deep/b.wav", "in", "in/deep"]
        self.assertEqual(self.assert_tool("depends", *arguments).splitlines(), files)
        facts = validated("tarnok-build-depends", json.loads(self.assert_tool("depends", "--json", *arguments)))
        self.assertEqual(facts["dependencies"], files)
        self.assertEqual((facts["format"], facts["quality"], facts["encrypted"]), ("Opus", 30, True))
        self.assertEqual(set(facts["flags"]), {"dont_loop", "no_guid"})
        self.assertEqual((facts["sounds"][0]["quality"], facts["sounds"][0]["flagsOn"]), (7, ["dont_loop"]))
        self.assertEqual([entry["kind"] for entry in facts["inputs"]], ["list", "profile", "folder"])

        self.assert_tool("depends", *arguments, "--depfile", "d/x.d", "--depfile-target", "stamp")
        self.write("Makefile", "all: stamp\nstamp:\n\t@echo made\n\t@touch stamp\n-include d/x.d\n")
        make = lambda: subprocess.run("make", cwd=self.work, capture_output=True, text=True, check=True).stdout
        self.assertEqual(make(), "made\n")
        self.assertIn("Nothing to be done", make())
        for path in ("odd $name#1.wav", "in/deep/new.wav", "key"):
            time.sleep(0.01)
            (self.work / path).touch()
            self.assertEqual(make(), "made\n", path)
        (self.work / "odd $name#1.wav").unlink()
        self.assertEqual(make(), "made\n", "a removed sound must not stop make")
        self.assertEqual(self.tool("depends", "l.lst")[0], FAILED)
        self.assertEqual(self.tool("depends", "v.prof", "a.wav", "--depfile", "x.d")[0], BAD_ARGUMENTS)

        for name in ("x=1.wav", "12: 30.wav", "a;touch b.wav", "a|b.wav"):
            with self.subTest(name=name):
                write_wav(self.work / name)
                self.assert_tool("depends", name, "in", "--depfile", "d/x.d", "--depfile-target", "stamp")
                (self.work / "stamp").touch()
                self.assertIn("Nothing to be done", make())
                time.sleep(0.01)
                (self.work / name).touch()
                self.assertEqual(make(), "made\n")


if __name__ == "__main__":
    unittest.main()
