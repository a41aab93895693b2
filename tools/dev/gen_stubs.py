#!/usr/bin/env python3
"""Writes placeholder definitions for the declarations of a header (bring-up aid)."""
import re, sys

def decls(text):
    text = re.sub(r'//[^\n]*', '', text)
    text = re.sub(r'__attribute__\(\(.*?\)\)\)?', '', text)
    out = []
    for m in re.finditer(r'^([A-Za-z_][\w:<>\s\*]*?[\s\*])([A-Za-z_]\w*)\s*\(([^;{}]*?)\)\s*;', text, re.M):
        ret, name, args = m.group(1).strip(), m.group(2), m.group(3)
        if ret.startswith(('typedef', 'return', 'constexpr', 'static_assert')) or 'struct' in ret:
            continue
        out.append((ret, name, ' '.join(args.split())))
    return out

header, source = sys.argv[1], sys.argv[2]
with open(header) as f:
    ds = decls(f.read())
inc = header.split('/')[-1]
lines = [f'// Placeholder definitions: replaced by the module\'s implementation.',
         f'#include "{inc}"', '']
for ret, name, args in ds:
    if ret == 'void':
        body = '{}'
    elif ret.endswith('*') or ret in ('SNMP_NOTIFY_HANDLE',):
        body = '{ return nullptr; }'
    elif ret in ('int', 'int64_t'):
        body = '{ return -1; }'
    elif ret == 'std::string':
        body = '{ return {}; }'
    else:
        body = '{ return {}; }'
    lines.append(f'{ret} {name}({args}) {body}')
with open(source, 'w') as f:
    f.write('\n'.join(lines) + '\n')
print(source, len(ds))
