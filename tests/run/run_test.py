"""./run as its user meets it, in a folder of its own and with stand-ins for what it calls."""
import os
import pathlib
import pty
import re
import shutil
import subprocess
import tempfile
import unittest

ROOT = pathlib.Path(__file__).resolve().parents[2]


class RunTest(unittest.TestCase):
    def setUp(self):
        self.folder = tempfile.TemporaryDirectory()
        self.root = pathlib.Path(self.folder.name)
        self.programs = self.root / "programs"
        self.programs.mkdir()
        shutil.copy(ROOT / "run", self.root / "run")
        self.stand_in("dpkg-query", self.listing(self.all_packages()))
        # A machine where no fresh one can be made: nobody is asked over the network.
        self.stand_in("apt-get", "exit 1")

    def tearDown(self):
        self.folder.cleanup()

    def stand_in(self, name, text):
        path = self.programs / name
        path.write_text("#!/bin/sh\n" + text + "\n")
        path.chmod(0o755)

    @staticmethod
    def all_packages():
        """Whatever may be the name of one."""
        return sorted(set(re.findall(r"[a-z][a-z0-9.+-]+", (ROOT / "run").read_text())))

    @staticmethod
    def listing(packages):
        """As dpkg-query answers for all packages, and for the one that is named last."""
        lines = "\n".join(f"ii  {name}" for name in packages)
        return (f"for last; do :; done\ncase $last in -*) cat <<'END'\n{lines}\nEND\n;;\n"
                f"*) echo 'ii ' ;; esac")

    def environment(self, **more):
        variables = {name: value for name, value in os.environ.items() if name != "NO_COLOR"}
        variables.update(PATH=f"{self.programs}:{os.environ['PATH']}", TERM="xterm", **more)
        return variables

    def run_verb(self, *arguments):
        return subprocess.run([self.root / "run", *arguments], env=self.environment(),
                              stdin=subprocess.DEVNULL, capture_output=True, text=True, check=False)

    def run_on_terminal(self, *arguments, **variables):
        """What is shown; line ends are "\\n"."""
        controller, terminal = pty.openpty()
        with subprocess.Popen([self.root / "run", *arguments], env=self.environment(**variables),
                              stdin=terminal, stdout=terminal, stderr=terminal):
            os.close(terminal)
            shown = b""
            try:
                while piece := os.read(controller, 4096):
                    shown += piece
            except OSError:  # How the end of a terminal is told.
                pass
        os.close(controller)
        return shown.decode().replace("\r\n", "\n")

    def test_an_unknown_verb_is_refused_with_those_that_there_are(self):
        result = self.run_verb("fly")
        self.assertEqual(result.returncode, 2)
        self.assertTrue(result.stderr.startswith("run: unknown verb 'fly'\nusage: ./run VERB\n"))

    def test_each_verb_is_in_the_usage(self):
        verbs = re.findall(r"^verb_([a-z-]+)\(\)", (ROOT / "run").read_text(), re.M)
        usage = self.run_verb().stdout
        self.assertGreater(len(verbs), 15)
        for verb in verbs:
            self.assertRegex(usage, rf"(?m)^  {verb} ")

    def test_each_verb_that_needs_packages_is_looked_at_by_doctor(self):
        text = (ROOT / "run").read_text()
        named = set(re.findall(r"^    \[([a-z -]+)\]=", text, re.M))
        shown = {line[:18].strip() for line in self.run_verb("doctor").stdout.splitlines()}
        self.assertEqual(named, shown)
        for used in re.findall(r"^ *(?:\(.*\|\| )?need_for \"?([a-z -]+?)\"?$", text, re.M):
            self.assertIn(used, named)

    def test_doctor_has_nothing_to_say_of_a_machine_that_has_everything(self):
        result = self.run_verb("doctor")
        self.assertEqual(result.returncode, 0, result.stdout + result.stderr)
        self.assertIn("demo               has what it needs\n", result.stdout)
        self.assertNotIn("lacks", result.stdout)

    def test_doctor_says_what_each_verb_lacks_and_how_to_get_it(self):
        present = [name for name in self.all_packages() if name not in ("doxygen", "uuid-dev")]
        self.stand_in("dpkg-query", self.listing(present))
        result = self.run_verb("doctor")
        self.assertEqual(result.returncode, 1)
        self.assertIn("demo               lacks uuid-dev\n", result.stdout)
        self.assertIn("docs               lacks doxygen\n", result.stdout)
        self.assertIn("armhf              has what it needs\n", result.stdout)
        self.assertTrue(result.stdout.endswith(
            "    apt-get update && apt-get install -y doxygen uuid-dev\n"), result.stdout)

    def fail_tests(self):
        self.stand_in("cmake", "exit 0")
        self.stand_in("ctest", f"""
            echo "called with: $*"
            cd {self.root} && mkdir -p build/dev/Testing/Temporary
            printf '7:Parts/WholeTest.Is(really)/3\\n2:TimerTest.Fires\\n' \
                >build/dev/Testing/Temporary/LastTestsFailed.log
            exit 8""")

    def test_a_failed_test_is_shown_with_how_to_run_it_again(self):
        self.fail_tests()
        result = self.run_verb("test")
        self.assertEqual(result.returncode, 1)
        self.assertEqual(result.stderr.splitlines()[-4:], [
            "run: to run just one of those that failed:",
            r"    ./run test -R '^Parts/WholeTest\.Is\(really\)/3$'",
            r"    ./run test -R '^TimerTest\.Fires$'",
            "run: the tests of dev failed with status 8"])

    def test_there_is_colour_and_a_count_on_a_terminal(self):
        self.fail_tests()
        shown = self.run_on_terminal("test")
        self.assertIn("called with: --preset dev --progress", shown)
        self.assertIn("\033[1;31mrun:\033[0m the tests of dev failed", shown)

    def test_there_is_neither_elsewhere(self):
        self.fail_tests()
        result = self.run_verb("test")
        self.assertIn("called with: --preset dev\n", result.stdout)
        self.assertNotIn("\033", result.stdout + result.stderr)

    def test_colours_are_left_out_where_they_are_unwanted(self):
        self.fail_tests()
        self.assertNotIn("\033[1", self.run_on_terminal("test", NO_COLOR="1"))
        self.assertIn("run: building dev", self.run_on_terminal("test", NO_COLOR="1"))

    def test_stages_are_counted_and_timed(self):
        text = (self.root / "run").read_text().replace('\nmain "$@"\n', "")
        (self.root / "run").write_text(
            text + '\nverb_two() { stages "first=say one" "second=say two words"; say end; }\n'
            'main "$@"\n')
        self.assertEqual(self.run_verb("two").stderr, "\n".join([
            "run: [1/2] first", "run: [1/2] one", "run: [1/2] first: 0 s",
            "run: [2/2] second", "run: [2/2] two words", "run: [2/2] second: 0 s", "run: end", ""]))


if __name__ == "__main__":
    unittest.main()
