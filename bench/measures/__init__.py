"""The benchmarks of ./scripts/bench: a module each, with measure(options)."""
