// Filled in with the bc codec family.
