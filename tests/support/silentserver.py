"""A file system whose server takes requests and never answers them.

    silentserver.py DIRECTORY

Mounts it at the directory, in the namespace that it runs in, says "ready", and serves
until it is ended. Those who wait for an answer cannot even be killed until then.
"""

import ctypes
import os
import struct
import sys

FUSE_INIT = 26
HEADER = struct.Struct("=IIQQIII")  # fuse_in_header, see <linux/fuse.h>: length, opcode, id ...

directory = sys.argv[1]
device = os.open("/dev/fuse", os.O_RDWR)
libc = ctypes.CDLL(None, use_errno=True)
options = f"fd={device},rootmode=40000,user_id=0,group_id=0,allow_other"
if libc.mount(b"silent", os.fsencode(directory), b"fuse", 0, options.encode()) != 0:
    sys.exit(f"mount: {os.strerror(ctypes.get_errno())}")
request = os.read(device, 1 << 20)
_, opcode, unique, *_ = HEADER.unpack_from(request)
assert opcode == FUSE_INIT
# fuse_init_out: version 7.31, no flags, one page at a time.
reply = struct.pack("=IIIIHHII", 7, 31, 0, 0, 1, 1, 4096, 1) + bytes(36)
os.write(device, struct.pack("=IiQ", 16 + len(reply), 0, unique) + reply)
print("ready", flush=True)
while os.read(device, 1 << 20):
    pass
