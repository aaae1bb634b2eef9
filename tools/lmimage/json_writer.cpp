// JSON output of lmimage info (in progress).
