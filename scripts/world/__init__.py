"""The world that the launcher lives in, for whoever plays in it from outside: the
demo, a player's first evening on Windows and the benchmarks. A community with its
web server, players with their clients, the launcher's process and its log, and a
display that exists in memory only. All but the display is for use inside
scripts/sandbox."""
