#include "ferry/driver/usage.h"

#include "ferry/driver/standard_streams.h"

namespace {

constexpr char USAGE[] =
    "*******************************************************************************\n"
    "**  ferry " FERRY_VERSION "\n"
    "**  Message Queue Utility\n"
    "**  Lines of text between pipes and durable queues\n"
    "**  \n"
    "**  Licensed under the Apache License, Version 2.0. It comes without warranty\n"
    "**  of any kind.\n"
    "*******************************************************************************\n"
    "\n"
    "Usage:\n"
    " ferry -C qname [-m manager]\n"
    " ferry -f qname [-m manager] [-c count] [-t pause] [-l priority] [-o expire]\n"
    " ferry -i configsection\n"
    " ferry -k qname [-m manager] [-c count]\n"
    " ferry -p qname [-m manager] [-c count]\n"
    " ferry -r qname [-m manager] [-c count]\n"
    " ferry -s qname [-m manager]\n"
    " ferry -X qname [-m manager]\n"
    "\n"
    "Operations:\n"
    " -C          Create queue\n"
    " -f qname    Copy records from stdin in\n"
    " -i section  Send to multiple queues based on section in ferry.ini\n"
    " -k qname    Delete records\n"
    " -p qname    Peek records to stdout\n"
    " -r qname    Read records to stdout (records are removed)\n"
    " -s qname    Display status\n"
    " -X qname    Delete queue\n"
    "\n"
    "Modifiers:\n"
    " -m manager  Specifies non-default queue manager\n"
    " -c count    Limit operation to count records\n"
    " -t pause    Milliseconds to wait between record operations\n"
    " -l priority Priority level of records\n"
    " -o expire   Number of seconds before a record expires.\n";

}

void InvalidCommand() { WriteNotice_v(USAGE); }
