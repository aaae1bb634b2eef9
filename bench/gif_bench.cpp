// GIF decoding against stb_image on the same bytes.
