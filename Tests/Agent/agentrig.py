"""For stories in Python: an agent on a simulated switch, in a folder of its own, asked over its socket.

Time is virtual unless the configuration says otherwise: nothing happens between two requests of advance().
MAINT_BUILD names the build folder whose programs are used.
"""

import http.client
import json
import os
import shutil
import signal
import socket
import subprocess
import tempfile
import time

# Units over three ports and a VLAN of a switch in virtual time, with a command of their own before draining.
UNITS = {"u1": "uplinks, tenants", "u2": "uplinks"}
CONFIGURATION = """\
version: 1
switch: simulated
settle: 10s
profiles:
  fast:  {{threshold: 100kbps, load-interval: 10s, shutdown: true, shutdown-max-delay: 5m}}
  watch: {{threshold: 1Mbps, load-interval: {watched}}}
default-profile: fast
groups:
  uplinks: {{interfaces: [{uplinks}]}}
  tenants: {{vlans: [10], profile: watch}}
units:
{units}
stages:
  steer: {{enter: {steer} enter, exit: {steer} exit, timeout: {limit}}}
enter: [steer, drainwatch]
exit: [drainwatch, steer]
simulated:
  clock: virtual
  ports: {{et1: {{}}, et2: {{}}, et3: {{}}}}
  vlans: {{10: {{name: vlan10, members: [et3]}}}}
"""
REPOSITORY = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
PATIENCE = 60


def configuration(steer, units=None, uplinks="et1, et2", watched="10s", limit="5m", web=None):
    """`steer`: the command of the stage of that name; `units`: groups by unit; `web`: the address of the page, if any."""
    lines = "\n".join(f"  {name}: {{groups: [{groups}]}}" for name, groups in (units or UNITS).items())
    text = CONFIGURATION.format(steer=steer, units=lines, uplinks=uplinks, watched=watched, limit=limit)
    return text + (f'listen: {{web: "{web}"}}\n' if web else "")


class Reply:
    def __init__(self, response):
        self.status = response.status
        self.headers = response.headers
        self.text = response.read().decode("utf-8")

    @property
    def json(self):
        return json.loads(self.text)


class LocalConnection(http.client.HTTPConnection):
    def __init__(self, path):
        super().__init__("localhost", timeout=PATIENCE)
        self.path = path

    def connect(self):
        self.sock = socket.socket(socket.AF_UNIX)
        self.sock.settimeout(self.timeout)
        self.sock.connect(self.path)


class Agent:
    """Ends with close(), which removes the folder."""

    def __init__(self, configuration):
        self.build = os.environ["MAINT_BUILD"]
        self.folder = tempfile.mkdtemp(prefix="agent.")
        self.pluginDir = os.path.join(self.build, "lib")
        self.process = None
        self.configure(configuration)

    def path(self, name):
        return os.path.join(self.folder, name)

    def configure(self, text):
        with open(self.path("maintd.yaml"), "w", encoding="utf-8") as file:
            file.write(text)

    def command(self, name, text):
        """Makes a program of shell lines, to carry out a stage."""
        with open(self.path(name), "w", encoding="utf-8") as file:
            file.write("#!/bin/sh\ncat > /dev/null\n" + text + "\n")
        os.chmod(self.path(name), 0o755)
        return self.path(name)

    def start(self):
        with open(self.path("log"), "a", encoding="utf-8") as log:
            self.process = subprocess.Popen(
                [os.path.join(self.build, "bin", "maintd"), "--foreground", "--config", self.path("maintd.yaml"),
                 "--state-dir", self.path("state"), "--runtime-dir", self.path("run"),
                 "--plugin-dir", self.pluginDir],
                stdin=subprocess.DEVNULL, stdout=log, stderr=log)
        self.until(lambda: self.get("/api/v1/agent").status == 200)
        return self

    def kill(self, number=signal.SIGTERM):
        self.process.send_signal(number)
        self.process.wait(PATIENCE)

    def close(self):
        if self.process and self.process.poll() is None:
            self.kill(signal.SIGKILL)
        shutil.rmtree(self.folder, ignore_errors=True)

    def log(self):
        with open(self.path("log"), encoding="utf-8", errors="replace") as file:
            return file.read()

    def ask(self, method, path, body=None):
        connection = LocalConnection(self.path("run/control.sock"))
        try:
            connection.request(method, path, body if body is None or isinstance(body, str) else json.dumps(body))
            return Reply(connection.getresponse())
        finally:
            connection.close()

    def get(self, path):
        return self.ask("GET", path)

    def post(self, path, **body):
        return self.ask("POST", path, body)

    def done(self, path, **body):
        """A POST that has to succeed."""
        reply = self.post(path, **body)
        if reply.status >= 300:
            raise AssertionError(f"{path}: {reply.status} {reply.text}")
        return reply.json

    def advance(self, seconds):
        return self.done("/api/v1/simulated/advance", seconds=seconds)

    def traffic(self, interface, inBps, outBps=0, **more):
        return self.done("/api/v1/simulated/traffic", interface=interface, **{"in-bps": inBps, "out-bps": outBps}, **more)

    def unit(self, name):
        return self.get("/api/v1/units/" + name).json

    def until(self, holds):
        """Waits in real time until something holds, which may fail because the agent does not answer yet."""
        end = time.monotonic() + PATIENCE
        while True:
            try:
                if holds():
                    return
            except OSError:
                pass
            if self.process.poll() is not None:
                raise AssertionError("the agent has ended:\n" + self.log())
            if time.monotonic() > end:
                raise AssertionError("it does not come about:\n" + self.log())
            time.sleep(0.02)
