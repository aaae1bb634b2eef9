// lmimage ninja (in progress).
