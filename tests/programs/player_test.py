# SPDX-License-Identifier: MIT
"""Runs the example of a player without a sound card: SDL writes what it would play into a file."""

import array
import random
import time

from program_case import BIN, ProgramCase, write_riff

PLAYER = BIN.parent / "tests" / "play_voices"
RATE = 48000
CHANNELS = 2


def make_samples(seed, frames=RATE // 4, loudness=6000):
    source = random.Random(seed)
    return array.array("h", (source.randint(1, loudness) for _ in range(frames * CHANNELS)))


def mix(*voices):
    """The sum of voices of one length in floats. Exact: 16 bits a voice."""
    return array.array("f", (sum(samples) / 32768 for samples in zip(*voices)))


class PlayerTest(ProgramCase):
    def make_bank(self, key=None, **sounds):
        for name, (samples, loop) in sounds.items():
            write_riff(self.folder_in / f"{name}.wav", samples.tobytes(), CHANNELS, RATE, loop=loop)
        return self.build("x.tnb", "-format", "pcm", key=key)

    def environment(self):
        return {**super().environment(), "SDL_AUDIODRIVER": "disk", "SDL_DISKAUDIOFILE": str(self.work / "played")}

    def start_player(self, *arguments, key=None):
        environment = {**self.environment(), **({"BANK_KEY": key} if key else {})}
        return self.start(*arguments, program=PLAYER, env=environment)

    def played(self):
        """What was played, without the silence before the player begins."""
        samples = array.array("f")
        content = (self.work / "played").read_bytes()
        samples.frombytes(content[:len(content) // 4 * 4])
        return samples[next((i for i, sample in enumerate(samples) if sample), len(samples)):]

    def play(self, *arguments, key=None):
        """Exit status, what was printed, and the samples."""
        with self.start_player(*arguments, key=key) as player:
            output, _ = player.communicate(timeout=60)
        return player.returncode, output, self.played() if (self.work / "played").exists() else None

    def test_voices_are_added_up_and_loop(self):
        once, looped = make_samples(1), make_samples(2)
        first, last = 2000, 8999
        bank = self.make_bank(key="secret", once=(once, None), looped=(looped, (first, last)))
        status, output, samples = self.play(bank, "0.8", "once*2", "looped@", key="secret")
        self.assertEqual(status, 0, output)
        endless = looped[:(last + 1) * CHANNELS]
        while len(endless) < RATE * CHANNELS // 2:
            endless += looped[first * CHANNELS:(last + 1) * CHANNELS]
        once += array.array("h", bytes(2 * (len(endless) - len(once))))
        self.assertEqual(samples[:len(endless)], mix(once, once, endless))

    def test_a_bank_that_was_built_again_is_played_from_then_on(self):
        before, after = make_samples(3), make_samples(4)
        bank = self.make_bank(sound=(before, (0, RATE // 4 - 1)))
        with self.start_player(bank, "60", "sound@") as player:
            while not (self.work / "played").exists() or not len(self.played()):
                time.sleep(0.01)
            self.make_bank(sound=(after, (0, RATE // 4 - 1)))
            expected = mix(after).tobytes()
            while player.poll() is None and expected not in (self.work / "played").read_bytes():
                time.sleep(0.05)
            self.assertIsNone(player.poll(), "the new sound was never played")
            player.terminate()
        self.assertEqual(self.played()[:len(before)], mix(before))

    def test_what_is_missing_is_reported(self):
        bank = self.make_bank(key="secret", sound=(make_samples(5), None))
        for arguments, key, words, expected in (
                ((bank, "1", "other"), "secret", "other: The sound or bank has nothing", 0),
                ((bank, "1", "sound"), "wrong", "x.tnb: ", 1),
                ((self.work / "missing.tnb", "1", "sound"), None, "missing.tnb: ", 1),
                ((bank,), None, "Usage: ", 2)):
            with self.subTest(arguments=arguments, key=key):
                status, output, _ = self.play(*arguments, key=key)
                self.assertEqual(status, expected, output)
                self.assertIn(words, output)
