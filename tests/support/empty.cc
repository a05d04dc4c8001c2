// Keeps the test support library non-empty while it has no helpers.
