#!/usr/bin/env python3
"""Fails when a module includes a module above it.

Layers, lowest first: the kits (ByteKit, HashKit; MediaKit on them) <- the photo logic
(SorviKit: core <- library <- previews <- checks, handoff, ai, demo <- session) <- the
model (SorviApp/model) <- the views (SorviApp/views, KestraneStyle) <- the application
(KestraneSorvi). The command line (sorvi/) stands on the photo logic alone. A folder may
include its own files and anything lower; the kits include no Qt, and the photo logic and
the model no widgets.
"""
import pathlib
import re
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent
SORVIKIT_AREAS = {'core': 0, 'library': 1, 'previews': 2, 'checks': 3, 'handoff': 3, 'ai': 3, 'demo': 3, 'session': 4}

# layer of a place: (rank, name); a place may include a lower rank or its own name
def layer(parts):
    top = parts[0]
    if top in ('ByteKit', 'HashKit'):
        return (0, top)
    if top == 'MediaKit':
        return (1, top)
    if top == 'SorviKit':
        area = parts[1] if len(parts) > 2 else None
        if area not in SORVIKIT_AREAS:
            return None
        return (10 + SORVIKIT_AREAS[area], 'SorviKit/' + area)
    if top == 'SorviApp':
        area = parts[1] if len(parts) > 2 else None
        return {'model': (20, 'SorviApp/model'), 'views': (30, 'SorviApp/views')}.get(area)
    if top == 'KestraneStyle':
        return (30, top)
    if top == 'KestraneSorvi':
        return (40, top)
    if top == 'sorvi':
        return (40, top)
    return None

WIDGETS = re.compile(r'#include\s*<(QtWidgets/\w+|QWidget|QApplication|QLabel|QPushButton|QToolButton|QDialog|'
                     r'QMainWindow|QMenu|QMenuBar|Q[VH]BoxLayout|QGridLayout|QStackedWidget|QScrollArea|'
                     r'QAbstractScrollArea|QListView|QFileDialog|QMessageBox|QComboBox|QCheckBox|QLineEdit|QStyle)>')
QUOTED = re.compile(r'#include\s*"([^"]+)"')
ANY_QT = re.compile(r'#include\s*<Q')

def main():
    problems = []
    for path in sorted(ROOT.rglob('*')):
        if path.suffix not in ('.h', '.cpp') or 'build' in path.relative_to(ROOT).parts[:1]:
            continue
        rel = path.relative_to(ROOT)
        here = layer(rel.parts)
        if here is None:
            continue
        text = path.read_text(encoding='utf-8', errors='replace')
        for number, line in enumerate(text.splitlines(), 1):
            where = f'{rel}:{number}'
            if here[0] < 10 and ANY_QT.search(line):
                problems.append(f'{where}: the kits use no Qt: {line.strip()}')
            if here[0] < 30 and WIDGETS.search(line):
                problems.append(f'{where}: {here[1]} uses no widgets: {line.strip()}')
            match = QUOTED.search(line)
            if not match or '/' not in match.group(1):
                continue
            target = layer(pathlib.PurePosixPath(match.group(1)).parts)
            if target is None:
                continue
            allowed = target[1] == here[1] or target[0] < here[0]
            if here[1] == 'sorvi':
                allowed = target[0] < 20
            if here[1] == 'SorviApp/views' and target[1] == 'KestraneStyle':
                allowed = True
            if not allowed:
                problems.append(f'{where}: {here[1]} may not include {match.group(1)} ({target[1]} is not below it)')
    for problem in problems:
        print(problem)
    print(f'check-includes: {len(problems)} upward include(s)' if problems else 'check-includes: every include points down')
    return 1 if problems else 0

if __name__ == '__main__':
    sys.exit(main())
