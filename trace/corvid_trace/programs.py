"""Where the built programs and the sources are that corvid-trace uses."""

import os
import sys

from corvid_trace.errors import TraceError

SOURCE = os.path.dirname(os.path.dirname(os.path.dirname(os.path.realpath(__file__))))

DAEMON = "vendor.corvid.hardware.wifi@1.0-service"
SIMULATOR = "corvid-sim"


class Programs:
    """The programs of one build folder: that of $CORVID_BUILD, of the link that was called, or build/."""

    def __init__(self, folder=None):
        called = os.path.dirname(os.path.abspath(sys.argv[0]))
        if folder is None:
            folder = os.environ.get("CORVID_BUILD")
        if folder is None and os.path.exists(os.path.join(called, SIMULATOR)):
            folder = os.path.dirname(called)
        self.folder = os.path.abspath(folder or os.path.join(SOURCE, "build"))

    def find(self, name, folder="bin"):
        """The path of a program or, with "lib", of a library; a TraceError when it is not built."""
        path = os.path.join(self.folder, folder, name)
        if not os.path.isfile(path):
            raise TraceError(f"{path} is not there: build it with 'ninja -C {self.folder}', or name "
                             "the build folder in CORVID_BUILD")
        return path
