# SPDX-License-Identifier: MIT
"""Builds a small game with banks in CMake, make, Meson and a shell script, as docs/build-systems.md shows it, with an
installed copy of the programs, and counts what is built after each change."""

import json
import os
import pathlib
import re
import shutil
import subprocess
import tempfile
import unittest

from program_case import BIN, SAMPLES, TIMEOUT, ProgramCase, write_wav

ROOT = SAMPLES.parent
GUIDE = (ROOT / "docs" / "build-systems.md").read_text()

# What the game of the guide doesn't do: a program that reads a bank, banks of all kinds of inputs, absolute paths.
MORE_BANKS = """
get_target_property(bank effects TARNOK_BANK)
add_custom_command(OUTPUT packed COMMAND sh -c "echo packed >>\\$EVENTS" COMMAND "${CMAKE_COMMAND}" -E touch packed
    DEPENDS effects "${bank}" VERBATIM)
add_custom_target(pack ALL DEPENDS "${CMAKE_CURRENT_BINARY_DIR}/packed")
add_custom_command(OUTPUT made.wav
    COMMAND "${CMAKE_COMMAND}" -E copy "${CMAKE_CURRENT_SOURCE_DIR}/theme.wav" made.wav DEPENDS theme.wav)
tarnok_add_bank(NAME steps SOURCES "${CMAKE_CURRENT_SOURCE_DIR}/odd name ü.wav" "${CMAKE_CURRENT_BINARY_DIR}/made.wav"
    OPTIONS --no-loop)
tarnok_add_bank(NAME whole PROJECT "${CMAKE_CURRENT_SOURCE_DIR}/effects.tnproj" OUTPUT "${CMAKE_BINARY_DIR}/v1.2/all.tnb")
"""


def example(name):
    return re.search(rf"^`{re.escape(name)}`:\n\n```\w+\n(.*?)```", GUIDE, re.DOTALL | re.MULTILINE)[1]


class BuildSystemsTest(ProgramCase):
    @classmethod
    def setUpClass(cls):
        cls.prefix = pathlib.Path(tempfile.mkdtemp(prefix="tarnok-installed-")).resolve()
        cls.addClassCleanup(shutil.rmtree, cls.prefix, ignore_errors=True)
        subprocess.run(["cmake", "--install", BIN.parent, "--prefix", cls.prefix], check=True, stdout=subprocess.DEVNULL)

    def setUp(self):
        super().setUp()
        for number, name in enumerate(("sounds/door", "sounds/rain", "theme", "odd name ü")):
            write_wav(self.work / f"{name}.wav", frequency=300 + 50 * number)
        (self.work / "music.lst").write_text("theme.wav\n")
        (self.work / "studio.key").write_text("Bassgeige\n")
        (self.work / "game.c").write_text('#include "effects.h"\nint main(void) { return EFFECTS_COUNT == 0; }\n')
        self.write_project("theme.wav")

        # Programs whose runs are counted.
        self.events = self.folder / "events"
        self.events.touch()
        wrappers = self.folder / "wrappers"
        wrappers.mkdir()
        for name, program, event in (
                ("tarnok-build", f"{self.prefix}/bin/tarnok-build",
                 '*--output*) echo "$*" | sed "s/.*[ \\/]\\([a-z]*\\)\\.tnb.*/\\1/" >>"$EVENTS"'),
                ("cc", shutil.which("cc"), '*"game.c "*) echo compiled >>"$EVENTS"')):
            (wrappers / name).write_text(f'#!/bin/sh\ncase "$* " in {event};; esac\nexec {program} "$@"\n')
            (wrappers / name).chmod(0o755)
        self.path = f"{wrappers}:{self.prefix}/bin:{os.environ['PATH']}"

    def write_project(self, *sounds):
        content = "".join(f"<subsound><file>{sound}</file></subsound>" for sound in sounds)
        (self.work / "effects.tnproj").write_text(
            "<soundbank><file_name>effects.tnb</file_name><profile><format>KADPCM</format></profile>"
            f"<content>{content}</content></soundbank>")

    def environment(self):
        return {**super().environment(), "PATH": self.path, "EVENTS": str(self.events), "CC": "cc"}

    def shell(self, script, status=0):
        found, output = self.run_tool("-ec", script, program="/bin/sh")
        self.assertEqual(found, status, f"{script}\n{output}")
        return output

    def assert_built(self, command, expected, why, status=0):
        self.events.write_text("")
        output = self.shell(command, status)
        self.assertEqual(sorted(self.events.read_text().split()), sorted(expected.split()), f"{why}\n{output}")
        return output

    def day(self, build, banks):
        """Changes that every build system must notice, each with what is built after it."""
        def change(path, frequency):
            write_wav(self.work / path, frequency=frequency)

        sound, added = self.work / "sounds/door.wav", self.work / "sounds/step.wav"
        for why, action, expected in (
            ("the first build", lambda: None, banks["all"]),
            ("nothing changed", lambda: None, ""),
            ("only its time changed", sound.touch, "effects"),
            ("a sound changed", lambda: change("sounds/door.wav", 900), "effects" + banks["readers"]),
            ("a sound was added", lambda: change("sounds/step.wav", 500), "effects compiled" + banks["readers"]),
            ("a sound was removed", added.unlink, "effects compiled" + banks["readers"]),
            ("nothing changed", lambda: None, ""),
            ("the bank was removed", lambda: next(self.work.glob("build*/effects.tnb")).unlink(),
             "effects" + banks["readers"]),
            ("the header was removed", lambda: next(self.work.rglob("effects.h")).unlink(), "effects compiled"),
        ):
            action()
            self.assert_built(build, expected, why)
        change("sounds/KICK.WAV", 600)
        output = self.assert_built(build, "effects", "a name that can't be built", status=1 if "ninja" in build else 2)
        self.assertRegex(output, r"KICK.WAV: error: 'KICK.WAV': suffixes must be lowercase; rename it to KICK.wav\n")
        (self.work / "sounds/KICK.WAV").rename(self.work / "sounds/KICK.wav")
        self.assert_built(build, "effects compiled" + banks["readers"], "the mended name")

    def test_cmake_builds_banks_when_something_changed(self):
        lists = example("CMakeLists.txt") + MORE_BANKS
        for generator, build in (("Ninja", "ninja -C build-n"), ("Unix Makefiles", "make -C build-m")):
            with self.subTest(generator):
                self.setUp()
                (self.work / "CMakeLists.txt").write_text(lists)
                folder = build.split()[-1]
                self.shell(f"cmake -S . -B {folder} -G '{generator}' -DCMAKE_PREFIX_PATH={self.prefix} "
                           f"-DTARNOK_BUILD_EXECUTABLE={self.folder}/wrappers/tarnok-build -DCMAKE_C_COMPILER=cc")
                self.day(build, {"all": "effects music steps all compiled packed", "readers": " packed"})
                self.changes_of_cmake(build, lists)

    def changes_of_cmake(self, build, lists):
        listed = self.work / "music.lst"
        for why, action, expected in (
            ("the sound of list, project and copy", lambda: write_wav(self.work / "theme.wav", frequency=77),
             "music steps all"),
            ("the list", lambda: listed.write_text("theme.wav,ksound_loop_off\n"), "music"),
            ("the key", lambda: (self.work / "studio.key").write_text("Bratsche\n"), "music"),
            ("the project", lambda: self.write_project("theme.wav", "sounds/rain.wav"), "all"),
            ("a sound of the project and of the folder", lambda: write_wav(self.work / "sounds/rain.wav"),
             "all effects packed"),
            ("a setting", lambda: (self.work / "CMakeLists.txt").write_text(lists.replace("QUALITY 60", "QUALITY 90")),
             "effects packed"),
            ("an option", lambda: (self.work / "CMakeLists.txt").write_text(
                lists.replace("QUALITY 60", "QUALITY 90").replace("--no-loop", "--no-guid")), "steps"),
            ("nothing", lambda: None, ""),
        ):
            action()
            self.assert_built(build, expected, why)
        folder = self.work / build.split()[-1]
        self.assertIn('"odd name ü"', self.tool("tnb", "info", "--json", folder / "steps.tnb"))
        self.assertEqual(len(json.loads(self.tool("tnb", "info", "--json", folder / "v1.2/all.tnb"))["sounds"]), 2)
        self.assertIn("encrypted; give its key", self.tool("tnb", "info", folder / "data/music.tnb", status=2))

    def tool(self, name, *arguments, status=0):
        found, output = self.run_tool(*arguments, program=self.prefix / "bin" / name)
        self.assertEqual(found, status, output)
        return output

    def test_cmake_refuses_what_it_can_not_build(self):
        head = "cmake_minimum_required(VERSION 3.21)\nproject(x NONE)\nfind_package(tarnok REQUIRED)\n"
        for arguments, message in (
            ("NAME a", "exactly one of SOURCES, LIST, PROJECT and DIRECTORY is needed"),
            ("NAME a LIST music.lst DIRECTORY sounds", "exactly one of"),
            ("LIST music.lst", "NAME is missing"),
            ("NAME a LIST music.lst FORMT pcm", "unknown arguments: FORMT;pcm"),
            ("NAME a LIST music.lst KEY_FILE", "no value for: KEY_FILE"),
        ):
            (self.work / "CMakeLists.txt").write_text(f"{head}tarnok_add_bank({arguments})\n")
            output = self.shell(f"cmake -S . -B refused -DCMAKE_PREFIX_PATH={self.prefix}", status=1)
            self.assertIn(message, " ".join(output.split()))

    def test_make_and_meson_build_the_bank_when_something_changed(self):
        (self.work / "Makefile").write_text(example("Makefile"))
        self.day("make", {"all": "effects compiled", "readers": ""})
        self.setUp()
        (self.work / "meson.build").write_text(example("meson.build"))
        self.shell("meson setup build")
        self.day("ninja -C build", {"all": "effects compiled", "readers": ""})

    def test_the_script_keeps_events_and_stops_at_faults(self):
        script = self.work / "build_banks.sh"
        script.write_text(example("build_banks.sh"))
        self.shell("sh build_banks.sh")
        events = [json.loads(line) for line in (self.work / "out/effects.jsonl").read_text().splitlines()]
        self.assertEqual(events[-1]["result"], "written")
        self.write_project("theme.wav", "gone.wav")
        self.shell("sh build_banks.sh", status=1)
        self.assertEqual(json.loads((self.work / "out/check.json").read_text())["faults"][0]["code"], "not-found")

    def test_the_commands_of_the_guide_run(self):
        for block in re.findall(r"```sh\n(.*?)```", GUIDE, re.DOTALL):
            if not block.startswith("#!"):
                self.shell(block)
        self.assertGreater((self.work / "effects.tnb").stat().st_size, 0)


if __name__ == "__main__":
    unittest.main()
