"""32-bit float WAV files, written and read bit for bit with numpy alone."""
import struct

import numpy as np

_IEEE_FLOAT = 3
_EXTENSIBLE = 0xFFFE


def _chunk(name, body):
    return name + struct.pack("<I", len(body)) + body + b"\0" * (len(body) & 1)


def write(path, audio, rate):
    """Writes float32 audio shaped (channels, frames) as a 32-bit float WAV."""
    channels, frames = audio.shape
    fmt = struct.pack("<HHIIHH", _IEEE_FLOAT, channels, rate, rate * channels * 4, channels * 4, 32)
    data = np.ascontiguousarray(audio.T, dtype="<f4").tobytes()
    body = b"WAVE" + _chunk(b"fmt ", fmt) + _chunk(b"fact", struct.pack("<I", frames)) + _chunk(b"data", data)
    path.write_bytes(b"RIFF" + struct.pack("<I", len(body)) + body)


def read(path):
    """Returns (float32 array shaped (channels, frames), rate) of a 32-bit float WAV."""
    raw = path.read_bytes()
    assert raw[:4] == b"RIFF" and raw[8:12] == b"WAVE", f"{path} is not a WAV file"
    chunks, position = {}, 12
    while position + 8 <= len(raw):
        name, size = raw[position:position + 4], struct.unpack("<I", raw[position + 4:position + 8])[0]
        chunks[name] = raw[position + 8:position + 8 + size]
        position += 8 + size + (size & 1)
    tag, channels, rate = struct.unpack("<HHI", chunks[b"fmt "][:8])
    bits = struct.unpack("<H", chunks[b"fmt "][14:16])[0]
    if tag == _EXTENSIBLE:
        tag = struct.unpack("<H", chunks[b"fmt "][24:26])[0]
    assert (tag, bits) == (_IEEE_FLOAT, 32), f"{path} holds format {tag} with {bits} bits"
    samples = np.frombuffer(chunks[b"data"], "<f4").reshape(-1, channels).T
    return np.ascontiguousarray(samples, dtype=np.float32), rate
