#!/usr/bin/env python3
"""regdiff.py BEFORE.reg AFTER.reg [IGNORE_REGEX...]

Compares two of Wine's registry files key by key and value by value, leaving
out the time stamps Wine writes. Prints one line per difference:
  + key                a key that appeared
  - key                a key that went
  + key :: value=data  a value that appeared (- went, ~ changed)
Lines matching any IGNORE_REGEX are left out."""
import re
import sys

SEP = '\\\\'  # a backslash as Wine escapes it in key names


def parse(path):
    keys = {}
    current = None
    pending = ''
    with open(path, encoding='utf-8', errors='replace') as handle:
        for raw in handle:
            line = pending + raw.rstrip('\n')
            pending = ''
            if line.endswith('\\') and current is not None and not line.startswith('['):
                pending = line[:-1].rstrip() + ' '
                continue
            if line.startswith('['):
                match = re.match(r'^\[(.*)\](?: \d+)?$', line)
                current = match.group(1) if match else line
                keys[current] = {}
            elif current is None or not line or line.startswith('#') or line.startswith(';'):
                continue
            else:
                match = re.match(r'^(@|"(?:[^"\\]|\\.)*")=(.*)$', line)
                if match:
                    keys[current][match.group(1)] = match.group(2).strip()
    # Wine writes no section for a key that holds only sub-keys: such a key
    # is implied by them, so every ancestor counts as present.
    for key in list(keys):
        parts = key.split(SEP)
        for end in range(1, len(parts)):
            keys.setdefault(SEP.join(parts[:end]), {})
    return keys


def main():
    before, after = parse(sys.argv[1]), parse(sys.argv[2])
    ignore = [re.compile(pattern) for pattern in sys.argv[3:]]
    out = []
    for key in sorted(set(before) | set(after)):
        if key not in before:
            out.append('+ ' + key)
        elif key not in after:
            out.append('- ' + key)
        old, new = before.get(key, {}), after.get(key, {})
        for name in sorted(set(old) | set(new)):
            if name not in old:
                out.append('+ %s :: %s=%s' % (key, name, new[name]))
            elif name not in new:
                out.append('- %s :: %s=%s' % (key, name, old[name]))
            elif old[name] != new[name]:
                out.append('~ %s :: %s=%s' % (key, name, new[name]))
    for line in out:
        if not any(pattern.search(line) for pattern in ignore):
            print(line)


if __name__ == '__main__':
    main()
