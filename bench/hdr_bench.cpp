// HDR decoding against stb_image on the same bytes.
