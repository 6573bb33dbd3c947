#!/usr/bin/env python3
"""Puts a message on a queue and takes one off, through ctypes.

    python3 jobs.py JOBS put "first job"
    python3 jobs.py JOBS get 60          # waits a minute at the most; status 1: there was none

Nothing has to be built: the library is loaded at run time, from where the dynamic loader finds it
(LD_LIBRARY_PATH, if need be). Shows: the structures and calls of bx/bx.h as far as putting and
getting needs them, and a unit of work as a "with" block.
"""
import ctypes
import sys
from ctypes import byref, c_char, c_int32, c_ubyte

bx = ctypes.CDLL("libbxm_r.so")  # or libbxic_r.so, for queues in a database

NAME = 48
FAILED, NO_MESSAGE, TRUNCATED = 2, 2033, 2080
INPUT, OUTPUT = 2, 16
WAIT, SYNCPOINT = 1, 2


class ObjectDescriptor(ctypes.Structure):
    _fields_ = [("structId", c_char * 4), ("version", c_int32), ("objectType", c_int32),
                ("objectName", c_char * NAME), ("managerName", c_char * NAME)]

    def __init__(self, queue):
        super().__init__(b"OD  ", 1, 1, queue.encode(), b"")


class MessageDescriptor(ctypes.Structure):
    _fields_ = [("structId", c_char * 4), ("version", c_int32), ("report", c_int32),
                ("messageType", c_int32), ("expiry", c_int32), ("feedback", c_int32),
                ("encoding", c_int32), ("characterSet", c_int32), ("format", c_char * 8),
                ("priority", c_int32), ("persistence", c_int32), ("messageId", c_ubyte * 24),
                ("correlationId", c_ubyte * 24), ("backoutCount", c_int32),
                ("replyToQueue", c_char * NAME), ("replyToManager", c_char * NAME),
                ("userId", c_char * 12), ("accountingToken", c_ubyte * 32),
                ("applicationIdentity", c_char * 32), ("putApplicationType", c_int32),
                ("putApplicationName", c_char * 28), ("putDate", c_char * 8),
                ("putTime", c_char * 8), ("applicationOrigin", c_char * 4),
                ("groupId", c_ubyte * 24), ("sequenceNumber", c_int32), ("offset", c_int32),
                ("messageFlags", c_int32), ("originalLength", c_int32)]

    def __init__(self):
        super().__init__(structId=b"MD  ", version=1, messageType=8, expiry=-1, encoding=546,
                         format=b"BXSTR   ", priority=-1, persistence=2)


class PutOptions(ctypes.Structure):
    _fields_ = [("structId", c_char * 4), ("version", c_int32), ("options", c_int32),
                ("timeout", c_int32), ("resolvedQueueName", c_char * NAME),
                ("resolvedManagerName", c_char * NAME)]

    def __init__(self, options):
        super().__init__(b"PMO ", 1, options, -1)


class GetOptions(ctypes.Structure):
    _fields_ = [("structId", c_char * 4), ("version", c_int32), ("options", c_int32),
                ("waitInterval", c_int32), ("reserved1", c_int32), ("reserved2", c_int32),
                ("resolvedQueueName", c_char * NAME), ("matchOptions", c_int32),
                ("reserved3", c_char * 4), ("reserved4", c_ubyte * 16),
                ("returnedLength", c_int32)]

    def __init__(self, options, milliseconds):
        super().__init__(b"GMO ", 1, options, milliseconds)


assert ctypes.sizeof(MessageDescriptor) == 364 and ctypes.sizeof(GetOptions) == 100


class QueueError(Exception):
    def __init__(self, call, reason):
        super().__init__(f"{call} failed with reason {reason}")
        self.reason = reason


def call(name, *arguments):
    """Makes a call of the interface; whatever fails is raised."""
    completion, reason = c_int32(FAILED), c_int32()
    getattr(bx, name)(*arguments, byref(completion), byref(reason))
    if completion.value == FAILED:
        raise QueueError(name, reason.value)


class Connection:
    """A connection to a manager. As a block it is a unit of work: an exception undoes it."""

    def __init__(self, manager=""):
        self.handle = c_int32()
        call("BXCONN", manager.encode(), byref(self.handle))

    def __enter__(self):
        return self

    def __exit__(self, kind, *_):
        try:
            call("BXCMIT" if kind is None else "BXBACK", self.handle)
        finally:
            call("BXDISC", byref(self.handle))

    def open(self, name, options):
        queue = c_int32()
        call("BXOPEN", self.handle, byref(ObjectDescriptor(name)), options, byref(queue))
        return queue

    def put(self, queue, data):
        call("BXPUT", self.handle, queue, byref(MessageDescriptor()), byref(PutOptions(SYNCPOINT)),
             len(data), data)

    def get(self, queue, milliseconds):
        """The next message's data; None when none comes within the wait."""
        options, room, length = GetOptions(WAIT + SYNCPOINT, milliseconds), 4096, c_int32()
        while True:
            data = ctypes.create_string_buffer(room)
            try:
                call("BXGET", self.handle, queue, byref(MessageDescriptor()), byref(options), room,
                     data, byref(length))
                return data.raw[:length.value]
            except QueueError as error:
                if error.reason == NO_MESSAGE:
                    return None
                if error.reason != TRUNCATED:
                    raise
                room = length.value


def main(name, operation, argument):
    with Connection() as connection:
        if operation == "put":
            connection.put(connection.open(name, OUTPUT), argument.encode())
            return 0
        data = connection.get(connection.open(name, INPUT), int(float(argument) * 1000))
        if data is None:
            return 1
        print(data.decode(errors="replace"), flush=True)
        return 0


if __name__ == "__main__":
    if len(sys.argv) != 4 or sys.argv[2] not in ("put", "get"):
        sys.exit("usage: jobs.py QUEUE put TEXT | QUEUE get SECONDS")
    try:
        sys.exit(main(*sys.argv[1:]))
    except QueueError as failure:
        sys.exit(str(failure))
