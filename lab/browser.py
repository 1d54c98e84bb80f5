"""A browser without a window that shows a page and is asked what it shows (W3C WebDriver)."""
import base64
import http.client
import json
import re
import shutil
import subprocess

ARGUMENTS = ("--headless=new", "--no-sandbox", "--disable-gpu", "--disable-dev-shm-usage",
             "--no-first-run", "--disable-background-networking", "--disable-component-update",
             "--disable-sync", "--window-size=1280,1000")


def why_not():
    """Why there is no browser to test with; None when there is one."""
    missing = [name for name in ("chromium", "chromedriver") if shutil.which(name) is None]
    return f"{' and '.join(missing)} not installed" if missing else None


class Browser:
    def __init__(self, *arguments):
        self.driver = subprocess.Popen(("chromedriver", "--port=0"), stdout=subprocess.PIPE,
                                       stderr=subprocess.DEVNULL, text=True)
        port = next(found.group(1) for line in self.driver.stdout
                    if (found := re.search(r"started successfully on port (\d+)", line)))
        self.connection = http.client.HTTPConnection("127.0.0.1", int(port), timeout=120)
        options = {"args": [*ARGUMENTS, *arguments], "binary": shutil.which("chromium")}
        made = self.call("POST", "/session", {"capabilities": {"alwaysMatch": {
            "goog:chromeOptions": options,
            "goog:loggingPrefs": {"browser": "ALL", "performance": "ALL"}}}})
        self.session = f"/session/{made['sessionId']}"

    def call(self, method, path, body=None):
        self.connection.request(method, path, None if body is None else json.dumps(body),
                                {"Content-Type": "application/json"})
        answer = json.loads(self.connection.getresponse().read())["value"]
        if isinstance(answer, dict) and "error" in answer: raise OSError(answer["message"])
        return answer

    def post(self, path, **body):
        return self.call("POST", self.session + path, body)

    def go(self, url):
        self.post("/url", url=url)

    def script(self, text, *arguments):
        """What the script returns."""
        return self.post("/execute/sync", script=text, args=arguments)

    def log(self, kind):
        """The entries since the last call: "browser" is the console."""
        return self.post("/se/log", type=kind)

    def press(self, keys):
        self.post("/actions", actions=[{"type": "key", "id": "keys", "actions": [
            {"type": kind, "value": key} for key in keys for kind in ("keyDown", "keyUp")]}])

    def emulate(self, command, **parameters):
        """A command of the browser's own protocol, such as for a dark screen."""
        return self.post("/goog/cdp/execute", cmd=command, params=parameters)

    def picture(self, path):
        """The whole page, also what is below the window."""
        width, height = self.script("return [innerWidth, document.documentElement.scrollHeight]")
        shown = self.emulate(
            "Page.captureScreenshot", captureBeyondViewport=True,
            clip={"x": 0, "y": 0, "width": width, "height": height, "scale": 1})
        path.write_bytes(base64.b64decode(shown["data"]))

    def close(self):
        try:
            self.call("DELETE", self.session)
        finally:
            self.driver.terminate()
            self.driver.wait(10)
            self.driver.stdout.close()
            self.connection.close()
