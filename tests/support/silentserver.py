"""A file system whose server takes requests and never answers them.

    silentserver.py DIRECTORY

Mounts it at the directory, in the namespace that it runs in, says "ready", and serves
until it is ended. Those who wait for an answer cannot even be killed until then.
"""

import ctypes
import os
import struct
import sys

device = os.open("/dev/fuse", os.O_RDWR)
libc = ctypes.CDLL(None, use_errno=True)
options = f"fd={device},rootmode=40000,user_id=0,group_id=0,allow_other"
if libc.mount(b"silent", os.fsencode(sys.argv[1]), b"fuse", 0, options.encode()) != 0:
    sys.exit(f"mount: {os.strerror(ctypes.get_errno())}")
# The first request is FUSE_INIT, see <linux/fuse.h>. The answer has the number of the
# request, version 7.31, no flags, and one page at a time.
number, = struct.unpack_from("=8xQ", os.read(device, 1 << 20))
os.write(device, struct.pack("=IiQ4I2H2I36x", 80, 0, number, 7, 31, 0, 0, 1, 1, 4096, 1))
print("ready", flush=True)
while os.read(device, 1 << 20):
    pass
