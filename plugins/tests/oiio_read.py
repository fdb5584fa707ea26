"""What OpenImageIO reads from an image file, at its defaults.

    oiio_read.py FILE PREFIX

For every subimage and mip level, in order, prints one line

    image X Y W H FULLX FULLY FULLW FULLH NCHANNELS

then the metadata lines the fidelity tests compare ("channels", "formats",
"name", "view", "chromaticities", "icc", "orientation", "pixelaspect", "resolution", "gamma",
"comment"), and
writes the pixels of
the data window (deep ones flattened) as 32-bit floats, channel after channel within
each pixel, rows from the top, to PREFIX.N (N counting the images).
"""
import sys

import OpenImageIO as oiio


def main(path, prefix):
    inp = oiio.ImageInput.open(path)
    if inp is None:
        sys.exit("cannot open %s: %s" % (path, oiio.geterror()))
    n = 0
    sub = 0
    while inp.seek_subimage(sub, 0):
        mip = 0
        while inp.seek_subimage(sub, mip):
            s = inp.spec()
            print("image", s.x, s.y, s.width, s.height, s.full_x, s.full_y, s.full_width,
                  s.full_height, s.nchannels)
            print("channels", ",".join(s.channelnames))
            formats = s.channelformats if len(s.channelformats) else [s.format] * s.nchannels
            print("formats", ",".join(str(f) for f in formats))
            print("name", s.get_string_attribute("oiio:subimagename", ""))
            print("view", s.get_string_attribute("view", ""))
            chroma = s.getattribute("chromaticities")
            print("chromaticities", "none" if chroma is None else
                  ",".join("%.6g" % v for v in chroma))
            icc = s.getattribute("ICCProfile")
            print("icc", "none" if icc is None else bytes(icc).hex())
            print("orientation", s.get_int_attribute("Orientation", 1))
            print("pixelaspect", "%.4g" % s.get_float_attribute("PixelAspectRatio", 1))
            print("resolution", "%.5g" % s.get_float_attribute("XResolution", 0),
                  "%.5g" % s.get_float_attribute("YResolution", 0),
                  s.get_string_attribute("ResolutionUnit", ""))
            print("gamma", "%.6g" % s.get_float_attribute("oiio:Gamma", 0))
            print("comment", s.get_string_attribute("Comment", s.get_string_attribute("comment", "")))
            if s.deep:
                # The flattened image, as OpenImageIO composites it.
                buf = oiio.ImageBufAlgo.flatten(oiio.ImageBuf(path, sub, mip))
                pixels = buf.get_pixels(oiio.FLOAT)
            else:
                pixels = inp.read_image(sub, mip, 0, s.nchannels, oiio.FLOAT)
            if pixels is None:
                sys.exit("cannot read %s: %s" % (path, inp.geterror()))
            with open("%s.%d" % (prefix, n), "wb") as out:
                out.write(pixels.astype("float32").tobytes())
            n += 1
            mip += 1
        sub += 1


main(sys.argv[1], sys.argv[2])
