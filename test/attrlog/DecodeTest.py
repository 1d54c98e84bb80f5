"""Compares the state that an independent decoder reads from the attribute log with its writer's.

usage: DecodeTest.py SERVE_STATE
"""
import json
import pathlib
import socket
import struct
import subprocess
import sys
import tempfile
import unittest

DECODER = pathlib.Path(__file__).with_name("decode.py")
SERVE_STATE = sys.argv.pop() if len(sys.argv) > 1 else ""
LONGEST = 60  # seconds; more is a hang


def decode(path):
    return subprocess.run([sys.executable, DECODER, path], capture_output=True, text=True,
                          timeout=LONGEST, check=False)


class ServedState(unittest.TestCase):
    def setUp(self):
        self.folder = tempfile.TemporaryDirectory()
        self.addCleanup(self.folder.cleanup)
        self.path = str(pathlib.Path(self.folder.name, "log"))
        self.server = subprocess.Popen([SERVE_STATE, self.path], stdin=subprocess.PIPE,
                                       stdout=subprocess.PIPE, text=True)
        self.addCleanup(self.end, self.server)
        self.state = json.loads(self.server.stdout.readline())

    @staticmethod
    def end(process):
        process.stdin.close()
        process.wait(LONGEST)
        process.stdout.close()

    def state_after(self, command):
        self.server.stdin.write(command + "\n")
        self.server.stdin.flush()
        return json.loads(self.server.stdout.readline())

    def decoded(self):
        result = decode(self.path)
        self.assertEqual((result.returncode, result.stderr), (0, ""))
        return json.loads(result.stdout)

    def test_state_is_read_as_it_was_written(self):
        self.assertEqual(len(self.state["eth0"]["status"]["group"]), 300)
        self.assertEqual(self.decoded(), self.state)

    def test_next_reader_reads_what_has_changed(self):
        changed = self.state_after("change")
        self.assertNotEqual(changed, self.state)
        self.assertEqual(self.decoded(), changed)

    def test_removed_interface_is_not_read(self):
        self.assertIn("eth1", self.decoded())
        self.assertEqual(list(self.state_after("remove")), ["eth0"])
        self.assertEqual(list(self.decoded()), ["eth0"])

    def test_follower_reads_each_change(self):
        follower = subprocess.Popen([sys.executable, DECODER, "--follow", self.path],
                                    stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True)
        self.addCleanup(self.end, follower)
        frames = iter(map(json.loads, follower.stdout))
        first = next(frames)
        self.assertEqual((first["frame"], first["name"]), ("hello", "ServeState"))
        walks = [frame for frame in iter(frames.__next__, {"frame": "current"})
                 if frame["frame"] == "begin" and frame["entity"] == "status/eth0"]
        self.assertGreater(len(walks), 2)  # interrupted and resumed
        self.assertEqual((walks[0]["flags"], walks[-1]["flags"]), (1, 3))
        self.state_after("change")
        self.assertEqual(next(frames), {"frame": "attributes", "entity": "config/eth0",
                                        "values": {"sendQuery": False}})
        self.assertEqual(next(frames), {"frame": "attributes", "entity": "status/eth0",
                                        "values": {"v2QueriesSent": 3}})
        self.assertEqual(next(frames), {"frame": "removal", "entity": "status/eth0",
                                        "collection": "group", "key": "239.0.0.77"})
        self.assertEqual(next(frames), {"frame": "addition", "entity": "status/eth0",
                                        "collection": "group", "key": "239.2.3.4"})
        last = self.state_after("remove")
        gone = [frame["entity"] for frame in frames_until(frames, "rootGone", 2)]
        self.assertEqual(sorted(gone), ["config/eth1", "status/eth1"])
        self.server.stdin.close()  # the follower ends with the log
        self.server.wait(LONGEST)
        self.assertEqual(json.loads(follower.stdout.read()), {"state": last})
        self.assertEqual(follower.wait(LONGEST), 0)


def frames_until(frames, name, count):
    """The next `count` frames of that name."""
    while count:
        frame = next(frames)
        if frame["frame"] == name:
            count -= 1
            yield frame


class BrokenLog(unittest.TestCase):
    """The decoder refuses wrong logs: otherwise its agreement would prove nothing."""

    def decoded(self, *frames):
        return self.written(*frames)[:2]

    def written(self, *frames, options=()):
        with tempfile.TemporaryDirectory() as folder, socket.socket(socket.AF_UNIX) as listening:
            path = str(pathlib.Path(folder, "log"))
            listening.bind(path)
            listening.listen()
            with subprocess.Popen([sys.executable, DECODER, *options, path],
                                  stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                                  text=True) as process:
                connection, _ = listening.accept()
                with connection:
                    for frame in frames:
                        data = bytes.fromhex(frame)
                        connection.sendall(struct.pack(">H", len(data)) + data)
                    connection.shutdown(socket.SHUT_WR)
                    state, error = process.communicate(timeout=LONGEST)
            return process.wait(LONGEST), error.strip(), state

    HELLO = "01 4d6f784c 0001 408f400000000000 00 0000"

    def test_log_without_current_is_not_complete(self):
        self.assertEqual(self.decoded(self.HELLO),
                         (1, "the log ended within a frame, or before it was complete"))

    def test_refusal_is_reported(self):
        self.assertEqual(self.decoded("0c 0002 6e6f"), (1, "refused: no"))

    def test_another_version_is_refused(self):
        self.assertEqual(self.decoded("01 4d6f784c 0002 408f400000000000 00 0000"),
                         (1, "not an attribute log of version 1"))

    def test_frame_with_too_many_bytes_is_refused(self):
        self.assertEqual(self.decoded(self.HELLO, "09 00"), (1, "a current is too long"))

    def test_attributes_of_a_later_build_are_skipped(self):
        root = b"\x02" + struct.pack(">IH", 1, 10) + b"storeState\0"
        root += struct.pack(">H", 17) + b"Agent::StoreState\0"
        status, error, state = self.written(
            self.HELLO, root.hex(), "04 00000001 00 0102 00000001 01ff 7f7f", "09",
            options=("--whole",))
        self.assertEqual((0, ""), (status, error))
        self.assertEqual({"storeState": {"formatVersion": 1}}, json.loads(state))

    def test_entity_that_was_not_announced_is_refused(self):
        self.assertEqual(self.decoded(self.HELLO, "04 00000007 00"),
                         (1, "entry 7 does not exist"))


class NoLog(unittest.TestCase):
    def test_missing_socket_is_reported(self):
        result = decode("/nonexistent/log")
        self.assertEqual(result.returncode, 2)
        self.assertIn("/nonexistent/log: ", result.stderr)


if __name__ == "__main__":
    unittest.main()
