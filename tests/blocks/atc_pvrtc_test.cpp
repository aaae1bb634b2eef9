// Filled in with the atc_pvrtc codec family.
