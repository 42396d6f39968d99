#!/usr/bin/python3
"""make repin's rewriting: what the engine's tests found, written into the
data files that pin it. tools/repin.sh runs the pinned tests with
VELKOR_REPIN naming FOLDER; they leave there

  pins               a line for each pinned field that differs: its file,
                     line, field number and whole new text, TAB-separated
  sessions/FILE/LINE what the engine printed in the transcript session of
  battery/FILE/LINE  tests/protocol/sessions/FILE (or battery/FILE) whose
                     "===" header is line LINE

A field takes its new text, its blanks kept. A transcript's expected lines
become what the engine printed: the longest run of lines that still match
keeps its patterns; between them old patterns take the new lines in order
(a "*" word stays "*" where the line has as many words), new lines beyond
them are added with "*" for an info line's time and nps, and the old ones
beyond them are dropped; "skip N" counts the lines it still passes over. A
battery session's "bestmoves N" takes the number of bestmove lines.

Usage: tools/repin.py FOLDER
"""
import os
import re
import sys

TOP = os.path.dirname(os.path.dirname(os.path.realpath(__file__)))
SKIPPED = None  # an expected line that a "skip N" passes over


def read_lines(path):
    # Bytes as characters one for one: what the engine printed, and the
    # transcripts, are compared and kept byte for byte.
    with open(path, 'rb') as f:
        lines = f.read().decode('latin-1').split('\n')
    return lines[:-1] if lines[-1] == '' else lines


def rewrite(path, edits):
    """Each line number (from 1) of edits maps to the lines that take its place."""
    lines = []
    for number, line in enumerate(read_lines(path), 1):
        lines += edits.get(number, [line])
    with open(path, 'wb') as f:
        f.write(''.join(line + '\n' for line in lines).encode('latin-1'))


def with_field(line, field, text):
    """The line with its field'th ';'-separated field replaced by text, the blanks around kept."""
    start = 0
    for _ in range(field):
        start = line.index(';', start) + 1
    end = line.find(';', start)
    end = len(line) if end < 0 else end
    old = line[start:end]
    first, last = start + len(old) - len(old.lstrip(' ')), start + len(old.rstrip(' '))
    return line[:first] + text + line[last:]


def unescape(text):
    return re.sub(r'\\(t|r|x[0-9A-Fa-f]{2})',
                  lambda m: {'t': '\t', 'r': '\r'}.get(m[1]) or chr(int(m[1][1:], 16)), text)


def escaped(text):
    """An output line as a transcript writes it: TAB, CR and other control bytes escaped."""
    return ''.join('\\t' if c == '\t' else '\\r' if c == '\r' else
                   '\\x%02X' % ord(c) if ord(c) < 0x20 or ord(c) >= 0x7f else c for c in text)


def matcher(pattern):
    """An expected line as a test of an output line: "*" is one word of any characters."""
    if pattern is SKIPPED:
        return lambda line: True
    regex = re.compile('[^ ]+'.join(map(re.escape, pattern.split('*'))))
    return lambda line: regex.fullmatch(line) is not None


def pattern_for(line, old):
    words = escaped(line).split(' ')
    pattern = old.split(' ') if old is not None else []
    for i in range(len(words)):
        timing = i > 0 and line.startswith('info ') and words[i - 1] in ('time', 'nps')
        if (pattern[i] == '*') if len(pattern) == len(words) else timing:
            words[i] = '*'
    return '<' if words == [''] else '< ' + ' '.join(words)


def session(file, header):
    """The expected lines of the session whose header is line `header`, with
    the line each comes from, and the line of its "bestmoves"."""
    want, where, bestmoves = [], [], None
    for number in range(header + 1, len(file) + 1):
        line = file[number - 1]
        if line.startswith('=== '):
            break
        if line.startswith('<'):
            want.append(unescape(line[2:]))
            where.append(number)
        elif line.startswith('skip '):
            count = int(line[5:])
            want += [SKIPPED] * count
            where += [number] * count
        elif line.startswith('bestmoves '):
            bestmoves = number
    return want, where, bestmoves


def repin_transcript(file, header, got, edits):
    want, where, _ = session(file, header)
    got = got[2:]  # the banner and the processor line, which the test writes itself
    n, m = len(want), len(got)
    tests = [matcher(w) for w in want]
    common = [[0] * (m + 1) for _ in range(n + 1)]  # the longest run of aligned pairs from (i, j)
    for i in reversed(range(n)):
        for j in reversed(range(m)):
            common[i][j] = common[i + 1][j + 1] + 1 if tests[i](got[j]) else max(common[i + 1][j], common[i][j + 1])

    def insert_after(at, text):  # after what an edit already put there
        edits.setdefault(at, [file[at - 1]]).append(text)

    skipped = {}  # a "skip N" line's lines that still align
    i = j = 0
    last = header
    while i < n or j < m:
        if i < n and j < m and tests[i](got[j]) and common[i][j] == common[i + 1][j + 1] + 1:
            if want[i] is SKIPPED:
                skipped[where[i]] = skipped.get(where[i], 0) + 1
            last = where[i]
            i, j = i + 1, j + 1
            continue
        # A gap: the old lines and the new ones up to the next aligned pair.
        old, now = [], []
        while i < n and (j >= m or common[i][j] == common[i + 1][j]):
            old.append(i)
            i += 1
        while j < m and (i >= n or common[i][j] == common[i][j + 1]):
            now.append(j)
            j += 1
        new = [got[k] for k in now]
        for o in old:
            if want[o] is SKIPPED:
                skipped.setdefault(where[o], 0)
                continue
            edits[where[o]] = [pattern_for(new.pop(0), want[o])] if new else []
            last = where[o]
        for line in new:
            insert_after(last, pattern_for(line, None))
    for number, count in skipped.items():
        text = 'skip %d' % count
        if file[number - 1] != text:
            edits[number] = [text] if count else []


def repin_battery(file, header, got, edits):
    line = session(file, header)[2]
    count = sum(1 for out in got if out.startswith('bestmove '))
    if line and file[line - 1] != 'bestmoves %d' % count:
        edits[line] = ['bestmoves %d' % count]


def main(folder):
    edits = {}  # by file, then by line
    pins = os.path.join(folder, 'pins')
    for entry in read_lines(pins) if os.path.exists(pins) else []:
        path, line, field, text = entry.split('\t')
        line = int(line)
        file = edits.setdefault(path, {})
        file[line] = [with_field(file.get(line, read_lines(path)[line - 1:line])[0], int(field), text)]
    for kind, repin in (('sessions', repin_transcript), ('battery', repin_battery)):
        reports = os.path.join(folder, kind)
        for name in sorted(os.listdir(reports)) if os.path.isdir(reports) else []:
            path = os.path.join(TOP, 'tests', 'protocol', kind, name)
            file = read_lines(path)
            for header in os.listdir(os.path.join(reports, name)):
                repin(file, int(header), read_lines(os.path.join(reports, name, header)), edits.setdefault(path, {}))
    for path, changes in sorted(edits.items()):
        if changes:
            rewrite(path, changes)
            print('repin: %s, %d lines' % (os.path.relpath(path, TOP), len(changes)))


if __name__ == '__main__':
    if len(sys.argv) != 2 or not os.path.isdir(sys.argv[1]):
        sys.exit('usage: tools/repin.py FOLDER (the report of the tests run with VELKOR_REPIN=FOLDER; make repin runs it)')
    main(sys.argv[1])
