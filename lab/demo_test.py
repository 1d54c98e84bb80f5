"""What `scripts/demo` runs: the recording, and the page beside a link."""
import json
import os
import pathlib
import signal
import subprocess
import sys
import unittest
import urllib.error
import urllib.request

from lab import wait_until
from testcase import main

HERE = pathlib.Path(__file__).parent


def demo(name, *arguments):
    return subprocess.Popen((sys.executable, HERE / name, *arguments), stdout=subprocess.PIPE,
                            stderr=subprocess.STDOUT, text=True, env=os.environ)


class DemoTest(unittest.TestCase):
    def test_the_recording_is_shown_where_no_link_can_be_made(self):
        with demo("demo.py", "--replay", "it is asked for") as shown:
            text = shown.stdout.read()
        self.assertEqual(0, shown.returncode)
        self.assertIn("--> No live show: it is asked for.", text)
        self.assertIn("joined 239.1.1.1 by 10.77.0.11", text)
        self.assertIn("left 239.1.1.1", text)

    def test_the_page_is_served_until_it_is_interrupted(self):
        with demo("demo_page.py", "--listen", "127.0.0.1:0") as shown:
            self.addCleanup(shown.kill)
            lines = iter(shown.stdout.readline, "")
            url = next(line.strip() for line in lines if "http://" in line)

            def groups():
                try:
                    with urllib.request.urlopen(f"{url}api/v1/interfaces/eth0/groups") as answer:
                        return json.loads(answer.read())
                except urllib.error.HTTPError:
                    return []  # the page does not know the interface yet
            wait_until(lambda: any(each["sources"] for each in groups()), 60,
                       "a group with its source")
            shown.send_signal(signal.SIGINT)
            self.assertEqual(0, shown.wait(60))
        with self.assertRaises(OSError): groups()

    def test_a_page_that_cannot_be_served_ends_the_show(self):
        with demo("demo_page.py", "--listen", "192.0.2.1:9645") as shown:
            text = shown.stdout.read()
        self.assertEqual(1, shown.returncode)
        self.assertIn("demo: the page is not served", text)


if __name__ == "__main__":
    main()
