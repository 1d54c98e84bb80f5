"""Runs a command for which the kernel refuses one system call with one argument, with EPERM.

  refuse.py ioctl 1 0x5411 COMMAND...   all of ioctl whose argument 1 is TIOCOUTQ

The filter is a program of the kernel's seccomp, see seccomp(2). The command and all that it starts
keep it.
"""
import ctypes
import errno
import os
import platform
import struct
import sys

NUMBERS = {"x86_64": {"ioctl": 16, "getsockopt": 55}, "aarch64": {"ioctl": 29, "getsockopt": 209}}
PR_SET_SECCOMP = 22
SECCOMP_MODE_FILTER = 2
LOAD_WORD = 0x20  # BPF_LD | BPF_W | BPF_ABS
JUMP_EQUAL = 0x15  # BPF_JMP | BPF_JEQ | BPF_K
RETURN = 0x06  # BPF_RET | BPF_K
ALLOW = 0x7fff0000
REFUSE = 0x00050000 | errno.EPERM
NUMBER_AT = 0  # in struct seccomp_data
ARGUMENTS_AT = 16


class Program(ctypes.Structure):
    _fields_ = [("length", ctypes.c_ushort), ("instructions", ctypes.c_char_p)]


def instruction(code, operand, if_true=0, if_false=0):
    return struct.pack("=HBBI", code, if_true, if_false, operand)


def refuse(call, argument, value):
    """The lower half of an argument; both of our machines are little-endian."""
    text = b"".join((
        instruction(LOAD_WORD, NUMBER_AT),
        instruction(JUMP_EQUAL, NUMBERS[platform.machine()][call], if_false=3),
        instruction(LOAD_WORD, ARGUMENTS_AT + 8 * argument),
        instruction(JUMP_EQUAL, value, if_false=1),
        instruction(RETURN, REFUSE),
        instruction(RETURN, ALLOW)))
    program = Program(len(text) // 8, text)
    if ctypes.CDLL(None, use_errno=True).prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER,
                                               ctypes.byref(program)) != 0:
        raise OSError(ctypes.get_errno(), "no seccomp filter")


if __name__ == "__main__":
    refuse(sys.argv[1], int(sys.argv[2]), int(sys.argv[3], 0))
    os.execvp(sys.argv[4], sys.argv[4:])
