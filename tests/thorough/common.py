# SPDX-License-Identifier: Apache-2.0
"""What the thorough checks share: a work directory, runs of the command, the one-line report."""
import atexit
import ctypes
import os
import shutil
import subprocess
import sys
import tempfile
from concurrent.futures import ThreadPoolExecutor
from pathlib import Path

SLICE = os.environ.get('SLICE') == '1'  # a few seconds instead of the full figure
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


def skip(why):
    """End: this check can't be made here."""
    print(f'{Path(sys.argv[0]).name.replace("-", " ", 1)}: not run: {why}')
    sys.exit(77)


def report(figure):
    """End with the figure reached, and with the faults that were met."""
    print(*faults[:20], sep='\n', end='\n' if faults else '', file=sys.stderr)
    bad = f', {len(faults)} FAULTS' if faults else ''
    print(f'{Path(sys.argv[0]).name.replace("-", " ", 1)}: {figure}{bad}')
    sys.exit(1 if faults else 0)


def settings(more=None):
    """The environment of a run."""
    return {'PATH': f'{BIN}:/usr/bin:/bin', 'TZ': 'UTC', 'VX_WDIR': WORK, **(more or {})}


def run(args, env=None, timeout=20, command=COMMAND, **more):
    """Run the command: (status, stdout, stderr); minus the number of a signal, or 'hang'."""
    streams = {'stdin': subprocess.DEVNULL, 'stdout': subprocess.PIPE, 'stderr': subprocess.PIPE}
    try:
        done = subprocess.run([command, *args], env=settings(env), timeout=timeout, check=False,
                              **{**streams, **more})
        return done.returncode, done.stdout, done.stderr
    except subprocess.TimeoutExpired as late:
        return 'hang', late.stdout or b'', late.stderr or b''


def rows(table):
    """What a table lists, without what the clock and the user databases say."""
    cells = [line.split(b'|') for line in table.split(b'\n')[1:-1]]
    return [(*row[:4], row[-1]) for row in cells]


def each(judge, cases):
    """Judge all cases, on every core; what judge returns is a fault."""
    with ThreadPoolExecutor(os.cpu_count()) as pool:
        faults.extend(filter(None, pool.map(judge, cases)))


def put(path, content=TAGGED):
    """Write a file below the workspaces, in directories made as needed."""
    full = os.path.join(os.fsencode(WORK / 'workspace'), os.fsencode(path))
    os.makedirs(os.path.dirname(full), exist_ok=True)
    with open(full, 'wb') as out:
        out.write(content)
    return full


def helper(name, script):
    """Make a command of the surroundings."""
    BIN.mkdir(exist_ok=True)
    (BIN / name).write_text('#!/bin/sh\n' + script)
    (BIN / name).chmod(0o755)


def sample_tree():
    """A tree with every kind of entry that an ordinary work directory has."""
    for place in ('admin/default/maranth', 'ws/prof/maranth', 'admin/system/maranth'):
        for name in ('a.conf', 'b.json/scenario.json', 'c/x.txt', 'c/scenario.yaml', 'd.e.conf',
                     'f/.functional', 'f/scenario.json', '.h.conf', 'j.jmx/scenario.jmx', 'a.txt'):
            put(f'{place}/P/S/scenarios/{name}')
        put(f'{place}/Q/S/scenarios/q.conf', b'not JSON')
        os.symlink('nowhere', os.path.dirname(put(f'{place}/Q/T/scenarios/t.conf')) + b'/g.conf')
    helper('vxu_check_user', 'exit 0\n')
    helper('vxu_show_projects', r'printf "User Name|x\nws|prof|P|All\nws|prof|Q|T|more\n"' '\n')


def compiled(source, *more):
    """Compile a C source."""
    made = TOP / Path(source).stem
    cc = subprocess.run(['cc', '-O1', '-g', '-Wall', source, '-o', made, *more], check=False)
    return made if cc.returncode == 0 else skip(f'cc can not compile {source}')


def mount(at, *what):
    at.mkdir(exist_ok=True)
    return subprocess.run(['mount', *what, at], check=False).returncode == 0


def clean_up():
    IS_MOUNTED and subprocess.run(['umount', '-R', '-l', TOP], check=True)
    subprocess.run(['rm', '-rf', '--', TOP], check=True)


# As root all of it lies in memory, on a mount that nobody else sees and that ends with the script.
IS_MOUNTED = os.getuid() == 0 and LIBC.unshare(CLONE_NEWNS) == 0 and (
    mount(Path('/'), '--make-rprivate') and
    mount(TOP, '-t', 'tmpfs', '-o', 'nr_inodes=0,mode=755', 'none'))
atexit.register(clean_up)
os.makedirs(WORK / 'workspace')
shutil.copy(os.environ['VX_COMMAND'], COMMAND)
