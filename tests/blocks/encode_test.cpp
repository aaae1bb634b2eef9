// Filled in with the encode codec family.
