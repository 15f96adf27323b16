# SPDX-License-Identifier: Apache-2.0
# What the thorough checks share: a work directory, runs of the command, the one-line report.
import atexit, ctypes, os, shutil, subprocess, sys, tempfile
from concurrent.futures import ThreadPoolExecutor
from pathlib import Path
from subprocess import DEVNULL, PIPE

SLICE = os.environ.get('SLICE') == '1'  # a few seconds instead of the full figure
NAME = Path(sys.argv[0]).name.replace('-', ' ', 1)
HERE = Path(__file__).parent
LIBC = ctypes.CDLL(None)
CLONE_NEWNS = 0x00020000

# The listing wants a work directory of three components. Everybody may look into it, and run the
# command from there: some checks do so as another user.
TOP = Path(tempfile.mkdtemp(prefix='vx', dir='/tmp'))
TOP.chmod(0o755)
WORK = TOP / 'w'
BIN = TOP / 'bin'  # helper commands
COMMAND = TOP / 'vxu_show_scenarios'
TAGGED = b'{"scenario": {"TAGS": {"_G": [["smoke", "night"]]}}}\n'
RUNS = [['-A', '-T', 'smoke'], ['-u', 'bob', '-g'], ['-A'], ['-W', 'ws', '-g'], ['-A', '-d'],
        ['-p', 'P/S', '-T', 'night', '-k', 'a j'], ['-w', 'ws/prof', '-s', '9'],
        ['-u', 'admin', '-T', 'smoke'], ['-A', '-t', 'functional', '-g'], ['-p', 'P'],
        ['-W', 'ws', '-u', 'bob', '-s', '9'], ['-W', 'ws', '-t', 'functional']]
faults = []


# End: this check can't be made here.
def skip(why):
    print(f'{NAME}: not run: {why}')
    sys.exit(77)


# End with the figure reached, and with the faults that were met.
def report(figure):
    print(*faults[:20], sep='\n', end='\n' if faults else '', file=sys.stderr)
    bad = f', {len(faults)} FAULTS' if faults else ''
    print(f'{NAME}: {figure}{bad}')
    sys.exit(1 if faults else 0)


# The environment of a run.
def settings(more=None):
    return {'PATH': f'{BIN}:/usr/bin:/bin', 'TZ': 'UTC', 'VX_WDIR': WORK, **(more or {})}


# Run the command: (status, stdout, stderr); minus the number of a signal, or 'hang'.
def run(args, env=None, timeout=20, command=COMMAND, **more):
    streams = {'stdin': DEVNULL, 'stdout': PIPE, 'stderr': PIPE, **more}
    try:
        done = subprocess.run([command, *args], env=settings(env), timeout=timeout, **streams)
        return done.returncode, done.stdout, done.stderr
    except subprocess.TimeoutExpired as late:
        return 'hang', late.stdout or b'', late.stderr or b''


# What a table lists, without what the clock and the user databases say.
def rows(table):
    cells = [line.split(b'|') for line in table.split(b'\n')[1:-1]]
    return [(*row[:4], row[-1]) for row in cells]


# Judge all cases, on every core; what judge returns is a fault.
def each(judge, cases):
    with ThreadPoolExecutor(os.cpu_count()) as pool:
        faults.extend(filter(None, pool.map(judge, cases)))


# Write a file below the workspaces, in directories made as needed.
def put(path, content=TAGGED):
    full = os.path.join(os.fsencode(WORK / 'workspace'), os.fsencode(path))
    os.makedirs(os.path.dirname(full), exist_ok=True)
    with open(full, 'wb') as out:
        out.write(content)
    return full


# Make a command of the surroundings.
def helper(name, script):
    BIN.mkdir(exist_ok=True)
    (BIN / name).write_text('#!/bin/sh\n' + script)
    (BIN / name).chmod(0o755)


# A tree with every kind of entry that an ordinary work directory has.
def sample_tree():
    for place in ('admin/default/maranth', 'ws/prof/maranth', 'admin/system/maranth'):
        for name in ('a.conf', 'b.json/scenario.json', 'c/x.txt', 'c/scenario.yaml', 'd.e.conf',
                     'f/.functional', 'f/scenario.json', '.h.conf', 'j.jmx/scenario.jmx', 'a.txt'):
            put(f'{place}/P/S/scenarios/{name}')
        put(f'{place}/Q/S/scenarios/q.conf', b'not JSON')
        put(f'{place}/Q/S/scenarios/deep/er/than/descriptors/last/x.txt')
        os.symlink('nowhere', os.path.dirname(put(f'{place}/Q/T/scenarios/t.conf')) + b'/g.conf')
    helper('vxu_check_user', 'exit 0\n')
    helper('vxu_show_projects', r'printf "User Name|x\nws|prof|P|All\nws|prof|Q|T|more\n"' '\n')


# Compile a C source.
def compiled(source, *more):
    made = TOP / Path(source).stem
    cc = subprocess.run(['cc', '-O1', '-g', '-Wall', source, '-o', made, *more])
    return made if cc.returncode == 0 else skip(f'cc can not compile {source}')


# Compile a program on the library, whose counters in a coverage build are libgcov's.
def library_program(source=HERE / 'use_library.c'):
    (TOP / 'document.json').write_bytes(b'{"name": "%b", ' % (b'n' * 500) + TAGGED[1:].replace(
        b'"night"', b', '.join(b'"%0999d"' % n for n in range(40))))
    return compiled(source, f'-I{HERE}/../../base/include',
                    os.environ['VX_BUILD'] + '/core/base/libvxcore/libvxcore.a', '-lgcov')


def mount(at, *what):
    at.mkdir(exist_ok=True)
    return subprocess.run(['mount', *what, at]).returncode == 0


# As root all of it lies in memory, on a mount that nobody else sees and that ends with the script.
IS_MOUNTED = os.getuid() == 0 and LIBC.unshare(CLONE_NEWNS) == 0 and (
    mount(Path('/'), '--make-rprivate') and
    mount(TOP, '-t', 'tmpfs', '-o', 'nr_inodes=0,mode=755', 'none'))
atexit.register(lambda: (IS_MOUNTED and subprocess.run(['umount', '-R', '-l', TOP]),
                         subprocess.run(['rm', '-rf', '--', TOP])))
os.makedirs(WORK / 'workspace')
shutil.copy(os.environ['VX_COMMAND'], COMMAND)
