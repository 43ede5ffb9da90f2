"""What import can read. A source is a module with

    NAME           what --format calls it
    looks_so(line) whether a line is one of such a file, for a file whose format is not given
    records(lines, header, problems, options)
                   yields the records of a trace; what goes into the header is there before the first
"""
