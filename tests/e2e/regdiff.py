#!/usr/bin/env python3
"""regdiff.py BEFORE.reg AFTER.reg: the differences of two of Wine's registry
files, one line each, leaving out time stamps and the keys Wine itself
rewrites on every start (hardware, network cards, fonts, the debugger after a crash):
  + key / - key                a key that appeared / went
  + key :: value=data          a value that appeared (- went, ~ changed)"""
import re
import sys

NOISE = re.compile(r'^System\\\\CurrentControlSet\\\\(Control\\\\Class\\\\|Enum\\\\|Hardware Profiles\\\\Current\\\\Software\\\\Fonts)'
                   r'|^Software\\\\(Wine\\\\(WineDbg|Fonts)|Microsoft\\\\Windows NT\\\\CurrentVersion\\\\(AeDebug|NetworkCards))')


def parse(path):
    keys, current, pending = {}, None, ''
    with open(path, encoding='utf-8', errors='replace') as handle:
        for raw in handle:
            line = pending + raw.rstrip('\n')
            pending = ''
            if line.startswith('['):
                match = re.match(r'^\[(.*)\](?: \d+)?$', line)
                current = match.group(1) if match else line
                keys[current] = {}
            elif line.endswith('\\') and current is not None:
                pending = line[:-1].rstrip() + ' '
            elif current is not None and (match := re.match(r'^(@|"(?:[^"\\]|\\.)*")=(.*)$', line)):
                keys[current][match.group(1)] = match.group(2).strip()
    # Wine writes no section for a key that holds only sub-keys: its ancestors are implied.
    for key in list(keys):
        parts = key.split('\\\\')
        for end in range(1, len(parts)):
            keys.setdefault('\\\\'.join(parts[:end]), {})
    return {key: values for key, values in keys.items() if not NOISE.search(key)}


before, after = parse(sys.argv[1]), parse(sys.argv[2])
for key in sorted(set(before) | set(after)):
    if key not in before or key not in after:
        print(('+ ' if key not in before else '- ') + key)
    old, new = before.get(key, {}), after.get(key, {})
    for name in sorted(set(old) | set(new)):
        if old.get(name) != new.get(name):
            sign = '+' if name not in old else '-' if name not in new else '~'
            print('%s %s :: %s=%s' % (sign, key, name, new.get(name, old.get(name))))
