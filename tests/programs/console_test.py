# SPDX-License-Identifier: MIT
"""Runs the console tool as its users do: real sounds, real libraries, exit statuses, files on disk."""

import os
import random
import re
import signal
import subprocess
import time

from program_case import ALL_WRITTEN, BUILD_FAILED, SOUNDS_MISSING, STOPPED, TIMEOUT, ProgramCase, write_wav


class ArgumentsTest(ProgramCase):
    def test_stops_with_the_reason_last(self):
        hint = "An error occured while validating input\n\ntype -help for a full list of options\n"
        (self.work / "empty").mkdir()
        for arguments, expected in (
            ([], "ERROR: source not specified\nERROR: destination not specified\n" + hint),
            (["./a.wav"], "ERROR: destination not specified\n" + hint),
            (["-build_mode", "m"], "Mutiple\nERROR: source not specified\n" + hint),
            (["a.wav", "b.wav", "-ignore_errors"],
             "ERROR: Couldn't parse 'b.wav', is it missing a '-'?\nAn error occurred while parsing args\n"),
            (["a.wav", "-o", "x.tnb", "-cache_dir"],
             "ERROR: Unable to process arg '-cache_dir' with value ''\n"
             "cache_dir Use specified directory for cache files\nAn error occurred while processing args\n"),
            (["gr\udcf6.wav", "-o", "x.tnb"], "ERROR: argument 1, 'gr\ufffd.wav', is not UTF-8\n"),
            (["./empty", "-o", "x.tnb"],
             "\nGathering files...\n\nAnalysing files...\nAn error occurred while populating soundbank\n"),
            (["./empty", "-build_mode", "i", "-o", "x.tnb"],
             "Interleaved\n\nGathering files...\n\nAnalysing files...\nAn error occurred while populating soundbank\n"),
            (["-build_mode", "I"],
             "ERROR: Unable to process arg '-build_mode' with value 'I'\n"
             "build_mode s|i|m Build mode\n                     s = Single TNB (default)\n"
             "                     i = Single Interleaved TNB\n                     m = Multiple TNBs\n"
             "An error occurred while processing args\n"),
            (["a.wav", "-o", "x.tnb", "-nonsense", "x", "-no_seek", "y", "-f", "flac"],
             "\nGathering files...\n\nAnalysing files...\n\nProcessing args...\nERROR: Unknown arg '-nonsense'\n"
             "ERROR: unexpected value 'y'\nERROR: Unable to process arg '-no_seek' with value 'y'\nno_seek \ns \n"
             "XMA disable seeking to save memory (Xbox360 only)\n"
             "ERROR: Unable to process arg '-f' with value 'flac'\nformat \nf \n"
             "<format> Target format (default = pcm)\n                     Available formats :\n"
             "                     pcm|xma|at9|vorbis|kadpcm|opus\nAn error occurred while processing args\n"),
        ):
            with self.subTest(arguments=arguments):
                remark = "the source 'empty' has no sound that can be built\n" if "./empty" in arguments else ""
                self.assertEqual(self.run_apart(*arguments), (STOPPED, expected, remark))
        for arguments in ([], ["./empty", "-o", "x.tnb"]):
            self.assertEqual(self.run_tool(*arguments, "-verbosity", "0"), (STOPPED, ""))
        self.assertEqual(self.banks(), [])

    def test_shows_help_whatever_else_is_on_the_line(self):
        for arguments in (["-help"], ["--HELP"], ["/help"], ["-z", "-help"], ["-o", "x.tnb", "-help"]):
            with self.subTest(arguments=arguments):
                status, output = self.run_tool(*arguments)
                self.assertEqual(status, 0)
                self.assertTrue(output.startswith("\nKESS SoundBank Generator version 2.03.08 ("), output)
        self.assertRegex(output, r"\n\nCommand line switches :\n\n-build_mode          s\|i\|m Build mode\n")
        self.assertEqual(re.findall(r"^-(\w+)", output, re.M), (
            "build_mode ignore_errors cache_dir verbosity allow_tnb help recursive format quality encryption_key "
            "no_hf_filter no_seek no_loop generate_c_header profile thread_count optimize_samplerate "
            "write_peak_volume write_proj rebuild no_guid").split())
        self.assertTrue(output.endswith("Note: A .tnproj or .lst file can be used as the source.\n"), output)
        output = self.run_tool("-ignore_errors", "-help")[1]
        self.assertTrue(output.endswith("source.\nIgnoring errors\n"), "help comes ahead of what was held back")
        self.assertEqual(self.run_tool("-help", "me")[0], STOPPED)
        self.assertEqual(self.run_tool("a", "-help")[0], STOPPED)

    def test_aborts_where_it_can_not_continue(self):
        (self.work / "empty").mkdir()
        for arguments, remark, assertion in (
            (["gone.wav", "-o", "x.tnb"], "the source 'gone.wav' does not exist", '"false" in file .*src/command_line'),
            (["gone.wav", "-o", "x.tnb", "-ignore_errors"], "the source 'gone.wav' does not exist",
             '"false" in file .*src/command_line'),
            (["./empty", "-o", "x.tnb", "-ignore_errors"], "the source 'empty' has no sound that can be built",
             "index out of range"),
            (["-o", "x.tnb", "-ignore_errors"], "no source was given", "index out of range"),
            (["a.wav", "-profile", "./gone.prof", "-o", "x.tnb"],
             "the profile './gone.prof' can't be opened: No such file or directory",
             r'"file.isOpen\(\)" in file .*src/workspace'),
            (["a.wav", "-write_proj", "-o", "no/p.tnproj"],
             "the project 'no/p.tnproj' can't be written: No such file or directory",
             r'"file.isOpen\(\)" in file .*src/workspace'),
        ):
            with self.subTest(arguments=arguments):
                status, _, errors = self.run_apart(*arguments)
                self.assertEqual(status, -signal.SIGABRT)
                self.assertRegex(errors, rf"\A{re.escape(remark)}\nASSERT.*{assertion}.*\n\Z")
                self.assertEqual(self.run_tool(*arguments, "-verbosity", "0"), (-signal.SIGABRT, ""))
        self.assertEqual(self.banks(), [])

    def test_leaves_no_argument_to_the_toolkit(self):
        status, output = self.run_tool("a.wav", "-qmljsdebugger", "-o", "x.tnb")
        self.assertEqual(status, STOPPED)
        self.assertIn("ERROR: Unknown arg '-qmljsdebugger'\n", output)
        self.assertNotIn("destination not specified", output)

    def test_prints_more_or_less_by_verbosity(self):
        self.assertEqual(self.assert_builds("a.wav", "-o", "x.tnb", "-verbosity", "1"), "", "errors only")
        everything = self.assert_builds("a.wav", "-o", "x.tnb", "-verbosity", "7", "-no_loop")
        self.assertIn("value changed to 6\n", everything)
        self.assertIn("* * * debug verbosity * * *\n", everything)
        self.assertNotIn("\nsource:", everything, "what came before the switch was dropped already")
        self.assertIn("processing: -no_loop \n", everything)
        self.assertTrue(everything.endswith("bank 0 destructed\nsubsound 0 destructed\nsource file 0 destructed\n"))


class BuildsTest(ProgramCase):
    def test_names_the_bank_by_destination_or_source(self):
        (self.work / "there").mkdir()
        for arguments, bank in (
            (["-o", "x.tnb", "a.wav"], "x.tnb"),
            (["a.wav", "-o", "there/y.tnb"], "there/y.tnb"),
            (["a.wav", "-o", f"{self.work}/plain"], "plain.tnb"),
            (["a.wav", "-o", "there/"], "there/a.tnb"),
        ):
            self.assertIn("\nSoundbank built successfully: ", self.assert_builds(*arguments))
            self.assertEqual(self.banks(), [bank])
            (self.work / bank).unlink()

    def test_says_processing_then_cached(self):
        write_wav(self.folder_in / "b.wav", frequency=330)
        write_wav(self.folder_in / "sub" / "c.wav", frequency=220)
        (self.folder_in / "notes.md").write_text("no sound")
        arguments = ["./in", "-o", "x.tnb", "-format", "vorbis"]
        first = self.assert_builds(*arguments)
        self.assertIn("ERROR: invalid file: 'notes.md'\nskipped: ", first)
        self.assertEqual(re.findall(r"^\d+: .*", first, re.M), ["0: (b.wav) [processing]"])
        bank = (self.work / "x.tnb").read_bytes()
        self.assertIn("0: (b.wav) [cached]", self.assert_builds(*arguments))
        self.assertEqual((self.work / "x.tnb").read_bytes(), bank)
        self.assertIn("0: (b.wav) [processing]", self.assert_builds(*arguments, "-rebuild"))
        self.assertEqual((self.work / "x.tnb").read_bytes(), bank)
        self.assertIn("(c.wav) [processing]", self.assert_builds(*arguments, "-recursive"))

    def test_walks_each_folder_once_and_skips_what_is_no_file(self):
        for name in ("b.wav", "sub/c.wav", "other/d.wav", "gr\udcf6\udcdfe.wav", ".hidden\udcff.wav", "\udce4/e.wav"):
            write_wav(self.folder_in / name)
        os.mkfifo(self.folder_in / "pipe")
        for link, target in (("pipe.wav", "pipe"), ("zero.wav", "/dev/zero"), ("broken.wav", "gone"), ("self", "self"),
                             ("here", "."), ("sub/up", ".."), ("sub/aside", "../other"), ("other/aside", "../sub")):
            (self.folder_in / link).symlink_to(target)
        status, output = self.run_tool("./in", "-o", "x.tnb", "-recursive")
        self.assertEqual(status, SOUNDS_MISSING)
        self.assertEqual(sorted(re.findall(r"left out '.*/in/(.*)\n", output)),
                         [r"\xe4': its name is not UTF-8", "broken.wav': a link to nothing",
                          r"gr\xf6\xdfe.wav': its name is not UTF-8",
                          "pipe.wav': it is a device or pipe, not a file",
                          "zero.wav': it is a device or pipe, not a file"])
        first, *others = (name for _, name in sorted(re.findall(r"^(\d+): \((.*)\)", output, re.M)))
        self.assertEqual([first, *sorted(others)], ["b.wav", "c.wav", "c.wav", "d.wav", "d.wav"])
        self.assertEqual(sorted(re.findall(r"^skipped: '.*/in/(.*)$", output, re.M)),
                         [r"\xe4' has a name that is not UTF-8", r"gr\xf6\xdfe.wav' has a name that is not UTF-8",
                          "pipe.wav' not a valid sound file", "zero.wav' not a valid sound file"])
        self.assertNotIn(r"\xe4", self.run_tool("./in", "-o", "x.tnb")[1], "a folder that isn't looked into")

    def test_takes_files_by_name_and_many_banks_backwards(self):
        names = ["10", "2", "A", "a_", "B", "c", "sub/0", "sub/Z", "Under/1"]
        for name in random.Random(7).sample(names, len(names)):
            write_wav(self.folder_in / f"{name}.wav", seconds=0.001)
        sounds = self.info(self.build("x.tnb", "-recursive"))["sounds"]
        wanted = [name.split("/")[-1] for name in names]
        self.assertEqual([sound["name"] for sound in sounds], wanted, "without regard to case, folders last")
        output = self.assert_builds("./in", "-recursive", "-build_mode", "m")
        self.assertEqual(re.findall(r"^0: \((.*)\.wav\)", output, re.M), wanted[::-1])

    def test_interleaves_and_multiplies(self):
        for name in ("b.wav", "c.wav"):
            write_wav(self.folder_in / name)
        (self.folder_in / "notes.md").write_text("no sound")
        output = self.assert_builds("./in", "-o", "x.tnb", "-build_mode", "i")
        self.assertNotIn("invalid file", output)
        self.assertRegex(output, "skipped: '.*notes.md' not a valid sound file")
        self.assertRegex(output, r"0: \((b.wav, c.wav|c.wav, b.wav)\) \[processing\]")
        (self.work / "x.tnb").unlink()

        for folder in ("there", "both"):
            (self.work / folder).mkdir()
        for arguments, banks in (
            (["m"], "b.tnb c.tnb"),
            (["m", "-o", "banks/"], "b.tnb c.tnb"),
            (["m", "-o", "there/", "-encryption_key", "k", "-format", "opus"], "there/b.tnb there/c.tnb"),
            (["i", "-build_mode", "m", "-o", "both/"], "both/[bc].tnb"),
        ):
            with self.subTest(arguments=arguments):
                output = self.assert_builds("./in", "-build_mode", *arguments)
                self.assertRegex(" ".join(self.banks()), f"^{banks}$")
                self.assertEqual(output.count("Build started\n"), len(self.banks()))
                for bank in self.banks():
                    (self.work / bank).unlink()
        self.assertTrue((self.work / "banks").is_dir(), "made, and left empty beside the banks")
        write_wav(self.folder_in / "sub" / "b.wav")
        status, output = self.run_tool("./in", "-recursive", "-build_mode", "m", "-o", "both/")
        self.assertEqual(status, BUILD_FAILED, "of three banks two are left")
        self.assertRegex(output, r"\nERROR: .*/both/b.tnb replaced the bank of another sound of that name\n")
        status, output = self.run_tool("-build_mode", "m", "-o", "no/such/", "./in")
        self.assertEqual(status, STOPPED)
        self.assertIn("ERROR: directory not found ", output)

    def test_writes_projects_and_builds_them(self):
        for destination, project in ((f"{self.work}/x", "x.tnproj"), ("y.tnproj", "y.tnproj"),
                                     ("Z.TNPROJ", "Z.TNPROJ.tnproj")):
            self.assert_builds("-write_proj", "-o", destination, "a.wav", "-format", "opus", "-quality", "30")
            text = (self.work / project).read_text()
            self.assertIn("<format>Opus</format>", text)
            self.assertIn("<quality>30</quality>", text)
            self.assertIn(f"<file>{self.work}/a.wav</file>", text)
        output = self.assert_builds("x.tnproj", "-o", "from_project.tnb", "-format", "pcm")
        self.assertIn("Successfully loaded project ", output)
        self.assertEqual(self.banks(), ["from_project.tnb"])

        former = (self.work / "x.tnproj").read_text()
        for name in ("c\x01.wav", "c\r.wav"):
            write_wav(self.work / name)
            status, output = self.run_tool("-write_proj", "-o", "x.tnproj", name)
            self.assertEqual(status, STOPPED)
            self.assertRegex(output, "ERROR: Cannot write file x.tnproj:\n.*can't be kept in it")
        status, output = self.run_tool("a.wav", "-write_proj", "-o", "x.tnproj", "-encryption_key", "  ")
        self.assertEqual(status, STOPPED)
        self.assertRegex(output, "ERROR: Cannot write file x.tnproj:\nThe key consists of blanks")
        self.assertEqual((self.work / "x.tnproj").read_text(), former)

        (self.work / "l.lst").write_text("a.wav,ksound_loop_off,quality=20\n")
        self.assert_builds("l.lst", "-o", "from_list.tnb", "-format", "vorbis")
        self.assertIn("from_list.tnb", self.banks())


class RemarksTest(ProgramCase):
    def make_faulty_folder(self):
        """A folder with one good sound; the sounds that are left out of the bank, and why."""
        write_wav(self.folder_in / "good.wav")
        write_wav(self.folder_in / "many.wav", channels=33)
        write_wav(self.folder_in / "secret.wav").chmod(0)
        (self.folder_in / "cut.FLAC").write_bytes(b"fLaC\0")
        (self.folder_in / "text.ogg").write_text("no sound")
        (self.folder_in / "\x1b[31m\n\x9b.wav").write_text("no sound")
        for name in ("notes.md", "song.mid", ".hidden.wav", "older.tnb"):
            (self.folder_in / name).write_text("nobody expects a sound of it")
        return ["left out 'in/\\x1b[31m\\x0a\\u009b.wav': not a sound of a known kind",
                "left out 'in/cut.FLAC': damaged or empty", "left out 'in/many.wav': more than 32 channels",
                "left out 'in/secret.wav': no permission", "left out 'in/text.ogg': not a sound of a known kind"]

    def as_nobody(self):
        """Root may read everything, so the tool must not run as root."""
        if os.geteuid() != 0:
            return {}
        for folder in (self.work.parent, *self.work.parent.rglob("*")):
            if folder.is_dir():
                folder.chmod(0o777)
        return {"user": 65534, "group": 65534, "extra_groups": []}

    def test_names_each_sound_that_is_left_out(self):
        left_out = self.make_faulty_folder()
        options = self.as_nobody()
        for source in ("./in", "p.tnproj"):
            for arguments, expected in (([], SOUNDS_MISSING), (["-ignore_errors"], ALL_WRITTEN),
                                        (["-build_mode", "m"], SOUNDS_MISSING)):
                with self.subTest(source=source, arguments=arguments):
                    status, output, errors = self.run_apart(source, "-o", f"{self.work}/x.tnb", *arguments, **options)
                    self.assertEqual(status, expected)
                    self.assertIn("Soundbank built successfully", output)
                    self.assertEqual(sorted(line for line in errors.splitlines() if "left out" in line), left_out)
                    self.assertEqual(self.run_tool(source, "-o", f"{self.work}/x.tnb", *arguments, "-verbosity", "0",
                                                   **options), (expected, ""))
            files = "".join(f"<subsound><file>{path}</file></subsound>" for path in sorted(self.folder_in.glob("[cgmst]*"))
                            if path.suffix not in (".md", ".mid", ".tnb"))
            (self.work / "p.tnproj").write_text(
                f"<soundbank><file_name>{self.work}/p.tnb</file_name><content>{files}"
                f"<subsound><file>{self.folder_in}/gone.wav</file></subsound></content></soundbank>")
            left_out = sorted([*left_out[1:], "left out 'in/gone.wav': no such file"])
        (self.work / "x.tnb").unlink()
        status, _, errors = self.run_apart("./in", "-o", f"{self.work}/x.tnb", "-allow_tnb", **options)
        self.assertEqual(status, SOUNDS_MISSING)
        self.assertIn("left out 'in/older.tnb': not a sound of a known kind\n", errors)
        status, _, errors = self.run_apart("./in", "-write_proj", "-o", "q.tnproj", **options)
        self.assertEqual((status, errors.count("left out")), (SOUNDS_MISSING, 5))

    def test_names_sounds_that_fail_during_the_build(self):
        write_wav(self.folder_in / "good.wav")
        (self.folder_in / "LOUD.WAV").write_bytes((self.folder_in / "good.wav").read_bytes())
        in_capitals = "LOUD.WAV is there: suffixes must be lowercase\n"
        failed = f"could not build 'in/LOUD.wav': LOUD.wav: the file does not exist (in/LOUD.wav); {in_capitals}"
        status, output, errors = self.run_apart("./in", "-o", "x.tnb", "-ignore_errors")
        self.assertEqual((status, errors), (ALL_WRITTEN, failed))
        self.assert_builds("./in", "-o", "x.tnproj", "-write_proj")
        self.assertEqual(self.run_apart("x.tnproj", "-o", "x.tnb", "-ignore_errors")[2],
                         f"left out 'in/LOUD.wav': no such file; {in_capitals}")
        status, output, errors = self.run_apart("./in", "-o", "x.tnb")
        self.assertEqual((status, errors.splitlines(True)[0]), (BUILD_FAILED, failed))
        self.assertRegex(errors, r"1 of 2 sounds could not be built; \d: LOUD.wav")
        self.assertRegex(output, r"ERROR: Soundbank failed: 1 of 2 sounds could not be built\n  \d: LOUD.wav: .*\n"
                                 r"ERROR: \nBuild failed: x.tnb\n")
        self.assertIn("'x.tnb' was not written: ", errors)

    def test_says_why_a_bank_is_not_written_and_what_is_no_project(self):
        write_wav(self.work / "a.wav")
        (self.work / "empty.wav").touch()
        for name in ("damaged.tnproj", "refused.tnprofile"):
            (self.work / name).write_text("<soundbank>\n<file_name>x</file_name>\n</other>")
        (self.work / "cut.tnproj").write_text("<soundbank>\n<file_name>x</file")
        for arguments, expected, words in (
            (("a.wav", "-o", "no/such/x.tnb"), BUILD_FAILED, "the folder no/such does not exist"),
            (("a.wav", "-o", "a.wav/x.tnb"), BUILD_FAILED, "was not written: "),
            (("damaged.tnproj", "-o", "x.tnb"), None, "left out 'damaged.tnproj': a damaged project, line 3: "),
            (("empty.wav", "-o", "x.tnb"), None, "'empty.wav' is empty"),
            (("cut.tnproj", "-o", "x.tnb"), None, "'cut.tnproj' ends early, in line 2"),
            (("a.wav", "-profile", "refused.tnprofile", "-o", "x.tnb"), None, "the profile 'refused.tnprofile' is damaged"),
        ):
            with self.subTest(arguments=arguments):
                status, _, errors = self.run_apart(*arguments)
                self.assertNotEqual(status, 0)
                self.assertIn(expected, (None, status))
                self.assertIn(words, errors)

    def test_replaces_no_source_of_the_run_by_another_bank_or_a_project(self):
        write_wav(self.folder_in / "x.wav")
        self.assertEqual(self.run_apart("./in", "-o", "in/x.tnb")[0], ALL_WRITTEN)
        bank = (self.folder_in / "x.tnb").read_bytes()
        write_wav(self.folder_in / "x.wav", frequency=700)
        status, _, errors = self.run_apart("./in", "-o", "./in", "-build_mode", "m", "-allow_tnb")
        self.assertEqual(status, BUILD_FAILED)
        self.assertIn("x.tnb' is not replaced by a bank: it is what this run is built from", errors)
        self.assertEqual((self.folder_in / "x.tnb").read_bytes(), bank)

        sound = (self.folder_in / "x.wav").read_bytes()
        os.link(self.folder_in / "x.wav", self.work / "hard.tnproj")
        status, _, errors = self.run_apart("in/x.wav", "-write_proj", "-o", "./hard.tnproj")
        self.assertNotEqual(status, 0)
        self.assertIn("hard.tnproj' is not replaced by a project", errors)
        self.assertEqual((self.folder_in / "x.wav").read_bytes(), sound)


    def test_says_where_the_output_goes_if_not_where_it_seems(self):
        for folder in ("out", "there", "in"):
            (self.work / folder).mkdir()
        write_wav(self.folder_in / "b.wav")
        for arguments, written in (
            (["-o", "./b.tnb"], "b.tnb.b"), (["-o", f"{self.work}/plain"], "plain.tnb"),
            (["-o", "x.tnb"], None), (["-o", "out/x.tnb"], None), (["-o", "there/"], None),
            (["-o", "fresh/", "-build_mode", "m"], str(self.work)), (["-o", "there/", "-build_mode", "m"], None),
            (["-o", f"{self.work}/p", "-write_proj"], "p.tnproj"), (["-o", "p.tnproj", "-write_proj"], None),
        ):
            with self.subTest(arguments=arguments):
                status, _, errors = self.run_apart("./in", *arguments)
                self.assertEqual(status, ALL_WRITTEN)
                asked = arguments[1].replace(f"{self.work}/", "")
                self.assertEqual(errors, f"the output goes to '{written}', not to '{asked}'\n" if written else "")
        self.assertEqual(self.run_apart("./in", "-o", "out//x.tnb")[2],
                         "the output goes to 'out/x..nb', not to 'out//x.tnb'\n")
        self.assertTrue((self.work / "out/x..nb").exists())

    def test_never_replaces_what_a_run_is_built_from_or_people_have_made(self):
        write_wav(self.work / "other.wav")
        (self.work / "hard.tnproj").touch()
        self.assert_builds("a.wav", "-write_proj", "-o", "p.tnproj")
        (self.work / "hard.tnproj").unlink()
        os.link(self.work / "p.tnproj", self.work / "hard.tnproj")
        profile = re.search("<profile>.*</profile>", (self.work / "p.tnproj").read_text(), re.DOTALL)[0]
        (self.work / "v.prof").write_text('<?xml version="1.0" encoding="UTF-8"?>\n' + profile)
        (self.work / "l.lst").write_text("a.wav\n")
        (self.work / "dead").write_text("<soundbank")
        for source, destination, reason in (
            (["p.tnproj"], "p.tnproj", "it is what this run is built from"),
            (["p.tnproj"], "hard.tnproj", "it is what this run is built from"),
            (["l.lst"], "l.lst", "it is what this run is built from"),
            (["a.wav", "-profile", "./v.prof"], "v.prof", "it is what this run is built from"),
            (["a.wav"], "p.tnproj", "it is a project"), (["a.wav"], "v.prof", "it is a profile"),
            (["a.wav"], "other.wav", "it is a sound"),
        ):
            with self.subTest(source=source, destination=destination):
                former = (self.work / destination).read_bytes()
                status, _, errors = self.run_apart(*source, "-o", f"{self.work}/{destination}")
                self.assertEqual((status, errors), (BUILD_FAILED, f"'{destination}' is not replaced by a bank: {reason}\n"))
                self.assertEqual((self.work / destination).read_bytes(), former)
        self.assert_builds("p.tnproj", "-write_proj", "-o", "p.tnproj", "-format", "opus")
        self.assertIn("<format>Opus</format>", (self.work / "p.tnproj").read_text())
        (self.work / "old.bin").write_text("anything")
        for key in ([], ["-encryption_key", "k"], []):
            self.assert_builds("a.wav", "-o", f"{self.work}/old.bin", *key)
            self.assert_builds("a.wav", "-o", f"{self.work}/old.bin", "-allow_tnb")

    def test_says_once_that_a_list_waits(self):
        (self.work / "l.lst").write_text("a.wav\nlate.wav\n")
        with self.start("l.lst", "-o", "x.tnb", stdout=subprocess.DEVNULL, stderr=subprocess.PIPE) as process:
            self.assertEqual(process.stderr.readline(),
                             f"tarnokexcl: {self.work}/l.lst:2: 'late.wav' can't be taken (no such file); it is tried "
                             "again until it can\n")
            time.sleep(0.2)  # time for many more attempts, which must not repeat the message
            write_wav(self.work / "~late.wav").rename(self.work / "late.wav")
            self.assertEqual((process.wait(TIMEOUT), process.stderr.read()), (ALL_WRITTEN, ""))

    def test_says_which_cache_is_used_instead(self):
        instead = f"'{self.work.parent}/.*/Cache' is used instead".replace(f"{self.work}/", "")
        for name, fault in (("nowhere", "no such folder"), ("a.wav", "it is not a folder")):
            arguments = ("a.wav", "-o", "x.tnb", "-cache_dir", f"../{self.work.name}/{name}")
            status, _, errors = self.run_apart(*arguments)
            self.assertEqual(status, ALL_WRITTEN)
            self.assertRegex(errors, rf"\ACache folder '{name}' can't be used: {fault}; {instead}\n\Z")
            self.assertEqual(self.run_apart(*arguments, "-z")[2], "")

    def test_escapes_control_characters_on_a_terminal(self):
        write_wav(self.folder_in / "a\x1b[2J.wav")
        leader, follower = os.openpty()
        with self.start("./in", "-o", "x.tnb", stdout=follower, stderr=follower) as process:
            self.assertEqual(process.wait(TIMEOUT), ALL_WRITTEN)
        os.close(follower)
        self.assertIn(b"(a\\x1b[2J.wav) [processing]", os.read(leader, 1 << 16))
        os.close(leader)
        self.assertIn("(a\x1b[2J.wav) [cached]", self.assert_builds("./in", "-o", "x.tnb"))


class FaultsTest(ProgramCase):
    def assert_fails_naming(self, name, *arguments):
        status, output = self.run_tool(*arguments)
        self.assertEqual(status, BUILD_FAILED, output)
        self.assertIn(name, output)

    def leftovers(self):
        return [p.name for p in self.work.iterdir() if p.name.startswith(".") or ".tmp" in p.name]

    def test_says_which_destination_can_not_be_written(self):
        (self.work / "file").write_text("in the way")
        for destination in ("no/such/folder/x.tnb", "file/x.tnb"):
            self.assert_fails_naming("Build failed: " + destination, "a.wav", "-o", destination)
        (self.work / "dir.tnb").mkdir()
        self.assert_builds("a.wav", "-o", "dir.tnb")
        self.assertEqual(self.banks(), ["dir.tnb", "dir.tnb/a.tnb"])

    def test_never_overwrites_a_source_or_a_header_that_is_not_its_own(self):
        source = (self.work / "a.wav").read_bytes()
        (self.work / "link.wav").symlink_to("a.wav")
        for destination in (f"{self.work}/a.wav", f"{self.work}/link.wav"):
            self.assert_fails_naming("Soundbank failed: " + destination, "a.wav", "-o", destination)
            self.assertEqual((self.work / "a.wav").read_bytes(), source)
        (self.work / "x.h").write_text("int mine;\n")
        self.assert_fails_naming("Soundbank failed: x.h", "a.wav", "-o", "x.tnb", "-generate_c_header")
        self.assertEqual((self.work / "x.h").read_text(), "int mine;\n")
        (self.work / "x.h").unlink()
        for _ in range(2):
            self.assert_builds("a.wav", "-o", "x.tnb", "-generate_c_header")
            self.assertIn("_SOUND_A 0\n", (self.work / "x.h").read_text())

    def test_keeps_the_former_bank_when_it_is_stopped(self):
        write_wav(self.work / "long.wav", seconds=60, channels=2)
        self.folder_in.mkdir()
        for name in ("m.wav", "n.wav"):
            (self.folder_in / name).symlink_to("../long.wav")
        self.assert_builds("a.wav", "-o", "x.tnb")
        former = (self.work / "x.tnb").read_bytes()
        arguments = ["-format", "vorbis", "-rebuild"]
        for number in (signal.SIGINT, signal.SIGTERM, signal.SIGHUP):
            for source in (["./long.wav", "-o", "x.tnb"], ["./in", "-build_mode", "m"]):
                with self.subTest(signal=number, source=source), self.start(*source, *arguments) as process:
                    while "[processing]" not in (line := process.stdout.readline()):
                        self.assertTrue(line, "it ended before it was stopped")
                    process.send_signal(number)
                    output = process.communicate(timeout=TIMEOUT)[0]
                self.assertEqual(process.returncode, -number)
                self.assertTrue(output.endswith(f"by the user.\ntarnokexcl: stopped by {number.name}\n"), output)
                self.assertNotIn("Build started", output, "no bank follows one that was cancelled")
                self.assertEqual(self.leftovers(), [])
                self.assertEqual(self.banks(), ["x.tnb"])
                self.assertEqual((self.work / "x.tnb").read_bytes(), former)
        self.assert_builds("long.wav", "-o", "whole.tnb", *arguments)
        whole = (self.work / "whole.tnb").read_bytes()
        for moment in ("Gathering files", "Build started", "[processing]", "Writing out TNB file"):
            with self.start("long.wav", "-o", "x.tnb", *arguments) as process:
                while moment not in (line := process.stdout.readline()):
                    self.assertTrue(line, "it ended before it was killed")
                process.kill()
            self.assertTrue((self.work / "x.tnb").read_bytes() in (former, whole), f"killed at {moment}")
        self.assert_builds("long.wav", "-o", "x.tnb", "-format", "vorbis")
        self.assertEqual(self.leftovers(), [])

    def test_the_status_depends_on_the_banks_and_not_on_the_log(self):
        lost = "tarnokexcl: the log could not be written to standard output\n"
        reader, writer = os.pipe()
        os.close(reader)
        with open("/dev/full", "w") as full, open(writer, "w") as unread:
            for log in (full, unread):
                for destination, expected in (("x.tnb", ALL_WRITTEN), ("no/such/x.tnb", BUILD_FAILED)):
                    run = self.run_program("a.wav", "-o", destination, stdout=log, stderr=subprocess.PIPE)
                    self.assertEqual(run[:2], (expected, None))
                    self.assertTrue(run[2].endswith(lost), run[2])

    def test_never_writes_a_file_through_a_closed_standard_stream(self):
        os.mkfifo(self.work / "pipe")
        for program, *arguments in (("tarnokexcl", "a.wav", "-o", "x.tnb", "-profile", "./pipe"),
                                    ("tnb", "info", "a.wav", "--key-file", "pipe")):
            for closed in ([0], [1], [2], [0, 1, 2]):
                with self.subTest(program=program, closed=closed), self.start(
                        *arguments, program=program,
                        preexec_fn=lambda: [os.close(stream) for stream in closed]) as process:
                    # The program is reading the pipe, so it has opened everything that it opens earlier.
                    with open(self.work / "pipe", "w") as pipe:
                        for stream in closed:
                            self.assertEqual(os.readlink(f"/proc/{process.pid}/fd/{stream}"), "/dev/null")
                        pipe.write("neither a profile nor a key\n")
