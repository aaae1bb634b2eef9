// Filled in with the etc codec family.
