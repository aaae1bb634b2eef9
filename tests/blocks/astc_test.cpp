// Filled in with the astc codec family.
