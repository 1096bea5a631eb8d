# SPDX-License-Identifier: MIT
"""Runs each example of docs/console.md, and compares completions and manual page with the existing switches."""

import re

from program_case import SAMPLES, ProgramCase, write_wav

ROOT = SAMPLES.parent


class DocumentsTest(ProgramCase):
    def setUp(self):
        super().setUp()
        write_wav(self.work / "step.wav")
        write_wav(self.work / "theme.wav", channels=2)
        for number, name in enumerate(("door", "rain", "inner/wind")):
            write_wav(self.work / "sounds" / f"{name}.wav", frequency=300 + 100 * number)
        (self.work / "sounds.lst").write_text("step.wav\ntheme.wav\n")
        self.shell("tarnokexcl sounds/ -o effects.tnproj -write_proj -format vorbis")
        profile = re.search("<profile>.*</profile>", (self.work / "effects.tnproj").read_text(), re.DOTALL)
        (self.work / "voice.prof").write_text('<?xml version="1.0" encoding="UTF-8"?>\n' + profile[0])

    def shell(self, script):
        status, output = self.run_tool("-ec", script, program="/bin/bash")
        self.assertEqual(status, 0, f"{script}\n{output}")
        return output

    def switches(self):
        return set(re.findall(r"^-(\w+)", self.shell("tarnokexcl -help"), re.MULTILINE))

    def test_the_examples_of_the_console_tool_run(self):
        text = (ROOT / "docs" / "console.md").read_text()
        examples = re.findall(r"```sh\n(.*?)```", text, re.DOTALL)
        used = set()
        for example in examples:
            with self.subTest(example):
                self.shell(example)
                for bank in re.findall(r"-o (\S+\.tnb)", example):
                    self.shell(f"test -s {bank}")
                used |= set(re.findall(r" -([a-z_]{2,})", example))
        self.assertEqual(self.switches() - used, set(), "switches without an example")

    def test_the_completions_know_every_switch(self):
        def complete(program, *words):
            script = f"source {ROOT}/platforms/linux/completions/{program}; COMP_CWORD={len(words)}; " \
                     f"COMP_WORDS=({program} {' '.join(words)}); _{program}; printf '%s\\n' \"${{COMPREPLY[@]}}\""
            return set(self.shell(script).split())

        self.assertEqual(complete("tarnokexcl", "-"), {f"-{name}" for name in self.switches()} | {"-o"})
        self.assertEqual(complete("tarnokexcl", "a.wav", "-format", "o"), {"opus"})
        self.assertEqual(complete("tarnokexcl", "so"), {"sounds", "sounds.lst"})
        for command in ("info", "validate", "extract", "diff"):
            help_text = self.shell(f"tnb {command} --help")
            options = set(re.findall(r"(?<=[\s,])(--?[a-z][a-z-]*)", help_text))
            self.assertEqual(complete("tnb", command, "-"), options, command)

    def test_the_manual_describes_every_switch(self):
        text = (ROOT / "docs" / "tarnokexcl.1").read_text()
        self.assertEqual(self.switches() - set(re.findall(r"\\-(\w+)", text)), set())
