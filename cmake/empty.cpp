// Keeps a library with no sources of its own valid.
