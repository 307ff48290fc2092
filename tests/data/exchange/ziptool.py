# Archives as other tools write them, and a reader that tells how names are stored.
import json, os, sys, zipfile, zlib
def unflagged(encoding):
    class Info(zipfile.ZipInfo):
        def _encodeFilenameFlags(self):
            return self.filename.encode(encoding), self.flag_bits
    return Info
mode, out = sys.argv[1], sys.argv[2]
entries = json.loads(sys.argv[3]) if len(sys.argv) > 3 else {}
def write(info_type, extra=None):
    with zipfile.ZipFile(out, 'w', zipfile.ZIP_DEFLATED) as z:
        for name, text in entries.items():
            z.writestr(info_type(name), text.encode('cp932'))
        for name, data in (extra or []):
            z.writestr(zipfile.ZipInfo(name), data)
def patch(local, central, change):
    data = bytearray(open(out, 'rb').read())
    for sig, at in ((b'PK\x03\x04', local), (b'PK\x01\x02', central)):
        i = data.rfind(sig) + at
        data[i:i + 4] = change(int.from_bytes(data[i:i + 4], 'little')).to_bytes(4, 'little')
    open(out, 'wb').write(data)
if mode in ('cp932', 'utf-8'):
    write(unflagged(mode))
elif mode == 'utf8':
    write(zipfile.ZipInfo)
elif mode == 'many':
    write(zipfile.ZipInfo, [('TV-%d.bin' % i, b'x') for i in range(1001)])
elif mode.startswith('noise'):
    write(zipfile.ZipInfo, [('TV-%d.bin' % i, os.urandom(600000)) for i in range(int(mode[5:]))])
elif mode == 'big':
    write(zipfile.ZipInfo, [('TV-big.bin', b'\0' * (2 << 20))])
elif mode == 'bomb':
    # 80 MiB of zeros whose local and central headers claim 1000 bytes.
    write(zipfile.ZipInfo, [('TV-bomb.bin', b'\0' * (80 << 20))])
    patch(22, 24, lambda size: 1000)
elif mode in ('truncated', 'crc'):
    write(zipfile.ZipInfo)
    data = bytearray(open(out, 'rb').read())
    if mode == 'truncated':
        del data[-30:]
    else:
        data[data.find(b'TV-') + 13] ^= 0x55  # the first byte past the local name
    open(out, 'wb').write(data)
elif mode == 'locked':
    write(zipfile.ZipInfo)
    patch(6, 8, lambda flags: flags | 1)
elif mode == 'list':
    with zipfile.ZipFile(out, metadata_encoding='cp932') as z:
        print(json.dumps([{'name': i.filename, 'utf8': bool(i.flag_bits & 0x800),
                           'data': z.read(i).decode('cp932', 'replace')} for i in z.infolist()]))
