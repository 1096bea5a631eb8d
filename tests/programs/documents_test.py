# SPDX-License-Identifier: MIT
"""Runs the examples of the documents, and compares completions and manual page with the existing switches."""

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

    def build_options(self):
        """The options of each command of the tool for build systems."""
        return {command: set(re.findall(r"(?<=[\s,])(--?[a-z][a-z-]*)", self.shell(f"tarnok-build {command} --help")))
                for command in ("run", "depends", "check")}

    @staticmethod
    def examples_of(document):
        return re.findall(r"```sh\n(.*?)```", (ROOT / document).read_text(), re.DOTALL)

    def switches(self):
        return set(re.findall(r"^-(\w+)", self.shell("tarnokexcl -help"), re.MULTILINE))

    def test_the_examples_of_the_console_tool_run(self):
        examples = self.examples_of("docs/console.md")
        used = set()
        for example in examples:
            with self.subTest(example):
                self.shell(example)
                for bank in re.findall(r"-o ([\w./]+\.tnb)", example):
                    self.shell(f"test -s {bank}")
                used |= set(re.findall(r" -([a-z_]{2,})", example))
                if "-profile" in example:
                    self.assertEqual([self.info("effects.tnb")[key] for key in ("codec", "quality")], ["vorbis", 30])
        self.assertEqual(self.switches() - used, set(), "switches without an example")

    def test_the_other_examples_run(self):
        self.shell("mkdir more && for i in 1 2 3 4 5 6 7 8; do cp step.wav more/sound$i.wav; done && "
                   "cp step.wav more/door_slam.wav && tarnokexcl more/ -o sfx.tnb && tarnokexcl sounds/ -o released.tnb &&"
                   "mkdir banks && echo secret >studio.key && tarnokexcl step.wav -o banks/a.tnb -encryption_key secret")
        readme = self.examples_of("README.md")
        examples = [example for example in readme if "scripts/" not in example and "apt" not in example]
        self.assertEqual(len(examples), 2, "the others are run by scripts/test_package.sh")
        for page in ("tarnokexcl.1", "tnb.1"):
            text = (ROOT / "docs" / page).read_text()
            examples += re.search(r"\.SH EXAMPLES\n\.nf\n(.*?)\.fi", text, re.DOTALL)[1].replace("\\-", "-").splitlines()
        for example in examples:
            with self.subTest(example):
                self.shell(example)

    def test_the_suffixes_are_renamed_as_documented(self):
        rename, = (example for example in self.examples_of("docs/console.md") if "mv -n" in example)
        for name in ("KICK.WAV", "a snare.Wav", "v1.Loud.wav", "inner/HAT.WAV", "Rain.WAV", "UPPER/x.wav", "README"):
            write_wav(self.work / "sounds" / name)
        (self.work / "sounds" / "Rain.wav").write_text("is kept")
        self.shell(rename)
        names = {str(path.relative_to(self.work / "sounds")) for path in (self.work / "sounds").rglob("*") if path.is_file()}
        self.assertEqual(names - {"door.wav", "rain.wav", "inner/wind.wav"},
                         {"KICK.wav", "a snare.wav", "v1.Loud.wav", "inner/HAT.wav", "Rain.WAV", "Rain.wav", "UPPER/x.wav",
                          "README"})
        self.assertEqual((self.work / "sounds" / "Rain.wav").read_text(), "is kept")

    def test_the_completions_know_every_switch(self):
        def complete(program, *words):
            script = f"source {ROOT}/platforms/linux/completions/{program}; COMP_CWORD={len(words)}; " \
                     f"COMP_WORDS=({program} {' '.join(words)}); _{program.replace('-', '_')}; printf '%s\\n' \"${{COMPREPLY[@]}}\""
            return set(self.shell(script).split())

        self.assertEqual(complete("tarnokexcl", "-"), {f"-{name}" for name in self.switches()} | {"-o"})
        self.assertEqual(complete("tarnokexcl", "a.wav", "-format", "o"), {"opus"})
        self.assertEqual(complete("tarnokexcl", "so"), {"sounds", "sounds.lst"})
        for command in ("info", "validate", "extract", "diff"):
            help_text = self.shell(f"tnb {command} --help")
            options = set(re.findall(r"(?<=[\s,])(--?[a-z][a-z-]*)", help_text))
            self.assertEqual(complete("tnb", command, "-"), options, command)
        for command, options in self.build_options().items():
            self.assertEqual(complete("tarnok-build", command, "-"), options, command)
        self.assertEqual(complete("tarnok-build", "run", "--format", "o"), {"opus"})
        self.assertEqual(complete("tarnok-build", "check", "so"), {"sounds", "sounds.lst"})

    def test_the_manual_describes_every_switch(self):
        text = (ROOT / "docs" / "tarnokexcl.1").read_text()
        self.assertEqual(self.switches() - set(re.findall(r"\\-(\w+)", text)), set())
        text = (ROOT / "docs" / "tarnok-build.1").read_text().replace("\\-", "-")
        for command, options in self.build_options().items():
            self.assertEqual(options - set(re.findall(r"--?[a-z-]+", text)), set(), command)
