"""tevalon-trace: what a recording of base/diagnostics/recorder.h tells.

    layout      how a recording lies in a file: docs/recording-format.md in numbers
    recording   a file, or several copies of one recording, read into records
    sentences   what a record tells, in words
    text        a line for each record
    follow      the same for a process that goes on
    timeline    records paired to slices, arrows, counters and instants
    trace_json  those as trace-event JSON
    findings    what is worth a look: slow handlers, time-outs, circles, ...
    summary     those as text
    page        those and the slices as a page for a browser
    device_log  a log whose lines have times
    merged      several recordings and logs in one order of time
    output      files that are there whole or not at all
    main        the command line
"""
