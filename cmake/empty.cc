// Placeholder for a subsystem that has no sources yet.
