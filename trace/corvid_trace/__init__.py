"""Records, imports, replays and compares walks of a headset; docs/trace-format.md has the files."""
