"""What bash offers for what has been typed."""
import pathlib
import re
import shlex
import subprocess
import unittest

ROOT = pathlib.Path(__file__).resolve().parents[2]
COMPLETION = ROOT / "tools/completion"

# How bash calls a completion, with its words taken apart as it does.
CALL = r"""
compopt() { :; }
source "$1"; shift
function=$1; shift
COMP_WORDS=("$@") COMP_CWORD=$(($# - 1))
"$function" "$1" "${COMP_WORDS[COMP_CWORD]}" "${COMP_WORDS[COMP_CWORD - 1]}"
printf '%s\n' "${COMPREPLY[@]}"
"""


def offered(script, function, *words):
    result = subprocess.run(["bash", "-uc", CALL, "bash", str(COMPLETION / script), function, *words],
                            cwd=ROOT, capture_output=True, text=True, check=True)
    assert result.stderr == "", result.stderr
    return set(result.stdout.split())


def options_of(command):
    text = subprocess.run(["/usr/bin/python3", "-B", *shlex.split(command), "--help"], cwd=ROOT,
                          capture_output=True, text=True, check=True).stdout
    return set(re.findall(r"(?<![\w-])--[a-z][a-z-]*", text))


class RunTest(unittest.TestCase):
    def offered(self, *words):
        return offered("run.bash", "_tevalon_run", *words)

    def test_verbs(self):
        verbs = set(re.findall(r"^verb_([a-z-]+)\(\)", (ROOT / "run").read_text(), re.M))
        self.assertEqual(self.offered("./run", ""), verbs | {"help"})
        self.assertEqual(self.offered("./run", "d"), {"demo", "doctor", "docs"})

    def test_options_of_the_demo(self):
        self.assertIn("--trace", self.offered("./run", "demo", "--"))
        self.assertEqual(self.offered("./run", "demo", "--se"), {"--session="})
        self.assertEqual(
            self.offered("./run", "demo", "--session", "=", "examples/tv_browser/sessions/e"),
            {"examples/tv_browser/sessions/evening.session"})
        self.assertIn("examples/tv_browser/", self.offered("./run", "demo", "--session", "=",
                                                           "examples/t"))

    def test_scenarios(self):
        names = set(re.findall(r"^TEVALON_SCENARIO(?:_WITH)?\((\w+)", "".join(
            path.read_text() for path in (ROOT / "explore").glob("*.cpp")), re.M))
        self.assertGreater(len(names), 10)
        self.assertEqual(self.offered("./run", "explore", ""),
                         names | {"--all", "--planted", "--bound"})

    def test_fuzz_targets(self):
        names = {path.stem for path in (ROOT / "fuzz").glob("*.cpp")}
        self.assertEqual(self.offered("./run", "fuzz", ""),
                         names | {"--seconds=", "--long", "--merge", "--planted", "readers"})

    def test_another_projects_run_is_left_alone(self):
        self.assertEqual(self.offered("/usr/run", ""), set())


class BrowserTest(unittest.TestCase):
    def test_options(self):
        source = (ROOT / "examples/tv_browser/browser_options.cpp").read_text()
        defaults = (ROOT / "src/command_line.cpp").read_text()
        options = set(re.findall(r'AddOption\("([a-z-]+)"', source + defaults))
        options |= set(re.findall(r'\badd\("([a-z-]+)"', defaults))
        self.assertIn("url", options)
        shown = {word.strip("-=") for word in offered("run.bash", "_tv_browser", "tv_browser", "-")}
        self.assertEqual(shown, options)

    def test_pages(self):
        self.assertEqual(offered("run.bash", "_tv_browser", "tv_browser", "--url", "=",
                                 "examples/tv_browser/pages/f"),
                         {"examples/tv_browser/pages/film.html"})


class ToolsTest(unittest.TestCase):
    def test_options_of_tevalon_trace(self):
        shown = offered("tevalon-trace", "_tevalon_trace", "tevalon-trace", "--")
        self.assertEqual(shown, options_of("tools/tevalon_trace/tevalon-trace.in"))

    def test_options_of_tevalon_explain(self):
        shown = offered("tevalon-explain", "_tevalon_explain", "tevalon-explain", "--")
        self.assertEqual(shown, options_of("tools/tevalon_explain/tevalon-explain.in"))

    def test_files(self):
        self.assertEqual(offered("tevalon-trace", "_tevalon_trace", "tevalon-trace", "README"),
                         {"README.md"})
        self.assertEqual(offered("tevalon-explain", "_tevalon_explain", "tevalon-explain", "README"),
                         {"README.md"})


if __name__ == "__main__":
    unittest.main()
