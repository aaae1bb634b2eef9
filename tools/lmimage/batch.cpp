// Batch conversion of the lmimage tool (in progress).
