"""Writes the files, measures them in rounds, and prints what it found beside the limits.

A row's ratio is the median, over the rounds, of its time to R0 of the same file in the same round.
R0 is a plain sequential read of the file into memory that is already there; F0 is such a read in a
process of its own, into fresh memory. Files are read from the system's cache of them.
"""

import argparse
import dataclasses
import json
import os
import platform
import signal
import statistics
import subprocess
import sys
import tempfile
import time

MIB = 1 << 20
NODES = 8_000_000
SHORT_RECORD = 64  # bytes; longer ones count as long
MOST_GRIDS = 500   # the reader's index takes 2048 sections, 4 of results for each grid
GROWTH = 1.3       # the cost of a unit may grow by so much from one size to the next


@dataclasses.dataclass
class Row:
    part: str
    label: str
    seconds: float | None = None
    ratio: float | None = None
    note: str = ''
    limit: str = ''
    met: bool | None = None
    ratio_limit: float | None = None


class Bench:
    def __init__(self, options, directory):
        self.options = options
        self.directory = directory
        self.facts, self.samples, self.peaks, self.rows = {}, {}, {}, []

    # ---- measuring ----

    def tool(self, *arguments):
        command = [f'{self.options.build}/fld_bench', *map(str, arguments)]
        return subprocess.run(command, check=True, stdout=subprocess.PIPE, text=True).stdout

    def path(self, name):
        return f'{self.directory}/{name}.fld'

    def write(self, name, arguments, nodes=NODES):
        scaled = ['--nodes', round(nodes * self.options.scale)]
        self.tool('write', self.path(name), *scaled, *arguments.split())
        with open(self.path(name) + '.json', encoding='utf-8') as facts:
            self.facts[name] = json.load(facts)

    def scaled(self, count):
        return round(count * self.options.scale)

    # A whole process: seconds, and its peak memory. This program's own memory is a floor of what
    # the system tells, and small.
    @staticmethod
    def process(*command):
        begin = time.perf_counter()
        with subprocess.Popen(command, stdout=subprocess.DEVNULL) as child:
            _, status, usage = os.wait4(child.pid, 0)
            seconds = time.perf_counter() - begin
            child.returncode = os.waitstatus_to_exitcode(status)
        if child.returncode != 0:
            sys.exit(f'bench: {command} failed')
        return seconds, usage.ru_maxrss * 1024

    def measure_once(self, name, fortran, processes):
        library = ['--library', self.options.library] if self.options.library else []
        flags = ['--fortran'] if fortran else []
        sample = json.loads(self.tool('measure', self.path(name), *library, *flags))
        if processes:
            tool, fld = f'{self.options.build}/fld_bench', f'{self.options.build}/fld'
            commands = {'f0': (tool, 'plain', self.path(name)),
                        'info': (fld, 'info', *library, self.path(name))}
            # A virtual machine pays much more for memory that no process had for a while, and for
            # huge pages in other places than for small ones. So each runs once unmeasured.
            for command in commands.values():
                self.process(*command)
            for key, command in commands.items():
                sample[key], sample[f'{key}_peak'] = self.process(*command)
        return sample

    # Measures the files in turn, round after round, and removes them.
    def measure(self, names, fortran=(), processes=()):
        for name in names:
            self.samples[name] = []
        for turn in range(self.options.rounds):
            print(f'\r{names[0]} ... {names[-1]}: round {turn + 1}   ', end='', file=sys.stderr)
            for name in names:
                self.samples[name].append(
                    self.measure_once(name, name in fortran, name in processes))
        library = ['--library', self.options.library] if self.options.library else []
        for name in names:
            self.peaks[name] = int(self.tool('peak', self.path(name), *library))
            os.remove(self.path(name))

    # ---- rows ----

    def median(self, name, key):
        return statistics.median(sample[key] for sample in self.samples[name])

    def ratio(self, name, key, base='r0'):
        return statistics.median(sample[key] / sample[base] for sample in self.samples[name])

    def add(self, *arguments, **keywords):
        self.rows.append(Row(*arguments, **keywords))

    def add_ratio(self, part, label, name, key, limit=None, base='r0', note=''):
        ratio = self.ratio(name, key, base)
        self.add(part, label, self.median(name, key), ratio, note,
                 f'{limit} {base.upper()}' if limit else '', ratio <= limit if limit else None,
                 ratio_limit=limit)

    def add_parts(self, part, label, name):
        for key in ('nodes', 'surfaces', 'elements', 'variables'):
            self.add_ratio(part, f'{label}: {key}', name, key)

    def add_peak(self, part, label, name, walls=0, cylindrical=False):
        limit = 64 * MIB + 32 * walls + (8 * self.facts[name]['nodes'] if cylindrical else 0)
        peak = self.peaks[name]
        self.add(part, f'{label}: memory of the library', note=f'{peak / MIB:.1f} MiB',
                 limit=f'{limit / MIB:.0f} MiB', met=peak <= limit)

    # What one unit costs, against the size before.
    def add_growth(self, part, label, name, unit, cost, before):
        growth = cost / before if before else None
        self.add(part, label, self.median(name, 'data'), self.ratio(name, 'data'),
                 f'{cost * 1e9:.2f} ns per {unit}' + (f', x{growth:.2f}' if growth else ''),
                 f'x{GROWTH}' if growth else '', growth <= GROWTH if growth else None)
        return cost

    # ---- the parts of the measurement ----

    def whole_file(self):
        orders = {'little': '', 'big': ' --big-endian'}
        for order, flag in orders.items():
            self.write(order, flag)
            self.write(f'{order}_nodes', '--no-cells' + flag)
        plain = list(orders)
        self.measure(plain + [f'{order}_nodes' for order in orders], plain, plain)
        size = self.facts['little']['bytes'] / 1e6
        for order, part in (('little', 'plain'), ('big', 'plain')):
            self.add_ratio(part, f'R0, {order}', order, 'r0', note=f'{size:.0f} MB')
            self.add_ratio(part, f'F0, {order}', order, 'f0')
            self.add_ratio('Fortran', f'record by record, {order}', order, 'fortran')
        for order, limit, node_limit in (('little', 2.5, 1.2), ('big', 3.2, 1.7)):
            cells = self.facts[order]['grid_cells'] / 1e6
            self.add_ratio('data', order, order, 'data', limit, note=f'{cells:.1f} million cells')
            self.add_parts('data', order, order)
            self.add_ratio('data', f'{order}, nodes and variables alone', f'{order}_nodes', 'data',
                           node_limit)
        for order in orders:
            peak = statistics.median(sample['info_peak'] for sample in self.samples[order])
            self.add_ratio('process', f'fld info, {order}', order, 'info', 1.6, 'f0',
                           f'peak {peak / MIB:.0f} MiB')

    def kinds_of_files(self):
        for kind, flags in (('double', '--doubles'), ('cylindrical', '--cylindrical --vector'),
                            ('cylindrical double', '--cylindrical --vector --doubles')):
            names = [f'{kind}, little', f'{kind}, big']
            self.write(names[0], flags)
            self.write(names[1], flags + ' --big-endian')
            self.measure(names)
            for name in names:
                size = self.facts[name]['bytes'] / 1e6
                self.add_ratio('data', name, name, 'data', note=f'{size:.0f} MB')
                self.add_parts('data', name, name)
                self.add_peak('data', name, name, cylindrical='cyl' in kind)

    def opening(self):
        names = {}
        for nodes in (NODES // 10, NODES):
            for records in (0, 1000, 100_000, 1_000_000):
                name = f'{nodes}_{records}'
                values = -(-16 * nodes // records) if records else 0
                self.write(name, f'--values-per-record {values}', nodes)
                names[name] = f'{self.scaled(nodes):,} nodes'
        self.write('short', '--values-per-record 1', 1_000_000 // 16)
        names['short'] = 'one value per record'
        self.measure(list(names))
        for name, label in names.items():
            records, seconds = self.facts[name]['records'], self.median(name, 'open')
            length = self.facts[name]['bytes'] / records
            limit = 1e-3 + records * (30e-9 if length <= SHORT_RECORD else 2e-6)
            self.add('open', f'{records:,} records of {length:,.0f} bytes, {label}', seconds,
                     note=f'{seconds / records * 1e9:,.0f} ns per record',
                     limit=f'{limit * 1e3:,.1f} ms', met=seconds <= limit)
        for records in (0, 1000):
            small, large = f'{NODES // 10}_{records}', f'{NODES}_{records}'
            growth = self.median(large, 'open') / self.median(small, 'open')
            self.add('open', f'array sizes x 10, {self.facts[large]["records"]:,} records',
                     note=f'x{growth:.2f}', limit=f'x{GROWTH}', met=growth <= GROWTH)

    def record_lengths(self):
        forms = {'1 value per record': '--values-per-record 1',
                 '1 value per record, big': '--values-per-record 1 --big-endian',
                 '3 values per record': '--values-per-record 3',
                 '100 values per record': '--values-per-record 100',
                 '10,000 values per record': '--values-per-record 10000',
                 'all values in a record': '',
                 'sub-records of 64 KiB': '--subrecord 65536'}
        for name, flags in forms.items():
            self.write(name, flags, NODES // 8)
        self.measure(list(forms), fortran=list(forms))
        for name in forms:
            single = name.startswith('1 ')
            note = f'{self.facts[name]["bytes"] / 1e6:.0f} MB'
            self.add_ratio('records', name, name, 'data', 6 if single else None, note=note)
            self.add_ratio('records', f'{name}: open', name, 'open')
            faster = self.ratio(name, 'fortran', 'data')
            self.add('Fortran', name, self.median(name, 'fortran'), self.ratio(name, 'fortran'),
                     f'the reader is x{faster:.1f} faster', 'x10' if single else '',
                     faster >= 10 if single else None)

    def walls(self):
        counts = [0, 1000, 240_000, 5_000_000]
        names = [f'{self.scaled(count):,} wall faces' for count in counts]
        for name, count in zip(names, counts):
            self.write(name, f'--wall-faces {self.scaled(count)}')
        self.measure(names)
        before = None
        for name, count in zip(names, counts):
            added = [(a['data'] - b['data'], (a['data'] - b['data']) / a['r0'])
                     for a, b in zip(self.samples[name], self.samples[names[0]])]
            seconds, ratio = (statistics.median(values) for values in zip(*added))
            self.add_ratio('walls', name, name, 'data')
            self.add_parts('walls', name, name)
            if count >= 240_000:
                cost = seconds / self.scaled(count)
                within = before is None or cost <= GROWTH * before
                self.add('walls', f'{name}: on top of none', seconds, ratio,
                         f'{cost * 1e9:.0f} ns per face', f'x{GROWTH}' if before else '0.5 R0',
                         within if before else ratio <= 0.5)
                before = cost
            self.add_peak('walls', name, name, walls=self.scaled(count))

    def growth(self):
        names = {}
        for millions in (1, 2, 4, 8, 16):
            name = f'{self.scaled(millions * 1_000_000):,} nodes'
            self.write(name, '', millions * 1_000_000)
            names[name] = self.facts[name]['nodes']
        self.measure(list(names))
        before = None
        for name, nodes in names.items():
            before = self.add_growth('growth', name, name, 'node',
                                     self.median(name, 'data') / nodes, before)
            self.add_peak('growth', name, name)

    def grids(self):
        counts = {f'{count} grids': count for count in (1, 10, 100, MOST_GRIDS)}
        for name, count in counts.items():
            self.write(name, f'--grids {count}')
        self.measure(list(counts))
        before = None
        for name in counts:
            before = self.add_growth('grids', name, name, 'byte',
                                     self.median(name, 'data') / self.facts[name]['bytes'], before)
            self.add_peak('grids', name, name)

    def host_library(self):
        self.write('host', '--scalars 5 --wall-faces 240000')
        library = ['--library', self.options.library] if self.options.library else []
        self.samples['host'] = [json.loads(self.tool('dataset', self.path('host'), *library))
                                for _ in range(self.options.rounds)]
        os.remove(self.path('host'))
        self.add_ratio('host', 'five scalars: bare data callback', 'host', 'data')
        for key in ('blocks', 'functions'):
            self.add_ratio('host', f'five scalars: Dataset, {key}', 'host', key, 1.25, 'data')
        self.add_ratio('host', 'one of five, no mesh', 'host', 'one_variable', 1.5,
                       'plain_variable')

    # Grid files of few records, and results of a series of a thousand files.
    def switching(self):
        for name in ('grid_a', 'grid_b'):
            self.write(name, '', 1000)
        os.mkdir(f'{self.directory}/series')
        self.write('series/s_0001', '', 1000)
        for step in range(2, 1002):
            self.write(f'series/s_{step:04}', '--results', 1000)
        time.sleep(3) # the reader remembers no file that was written just now
        for name, pair in (('grids', ('grid_a', 'grid_b')),
                           ('results', ('series/s_0500', 'series/s_0501'))):
            self.samples[name] = [json.loads(self.tool('switch', *map(self.path, pair)))
                                  for _ in range(self.options.rounds)]
        for name, lists in (('grids', 0), ('results', 1)):
            turn = self.median(name, 'turn')
            limit = 2 * self.median('grids', 'open') + lists * self.median(name, 'list')
            self.add('switch', f'between two open files: {name}', turn, turn / limit * 2,
                     f'an open {self.median(name, "open") * 1e3:.2f} ms',
                     f'{limit * 1e3:.2f} ms', turn <= limit)


PARTS = ['whole_file', 'kinds_of_files', 'opening', 'record_lengths', 'walls', 'growth', 'grids',
         'host_library', 'switching']


# ---- output ----

def print_table(rows):
    width = max(len(row.label) for row in rows)
    print(f'\n{"":8} {"":{width}} {"ratio":>7} {"seconds":>10}  {"":30} {"limit":>9}')
    for row in rows:
        ratio = f'{row.ratio:.2f}' if row.ratio is not None else ''
        seconds = f'{row.seconds:.6f}' if row.seconds is not None else ''
        met = {None: '', True: 'met', False: 'MISSED'}[row.met]
        print(f'{row.part:8} {row.label:{width}} {ratio:>7} {seconds:>10}  {row.note:30} '
              f'{row.limit:>9} {met}'.rstrip())
    judged = [row.met for row in rows if row.met is not None]
    print(f'\n{sum(judged)} of {len(judged)} limits met')


def save_json(path, bench, rows):
    with open(path, 'w', encoding='utf-8') as file:
        json.dump({'machine': {'cores': os.cpu_count(), 'system': platform.platform()},
                   'scale': bench.options.scale, 'rounds': bench.options.rounds,
                   'rows': [dataclasses.asdict(row) for row in rows], 'facts': bench.facts,
                   'samples': bench.samples, 'peaks': bench.peaks}, file, indent=1)


def plot(path, rows):
    drawn = [row for row in rows if row.ratio is not None and ': ' not in row.label]
    lines = [f'{position} {row.ratio} "{row.part}: {row.label}" {row.ratio_limit or "NaN"}'
             for position, row in enumerate(reversed(drawn))]
    commands = f'''set terminal pngcairo size 1100,{120 + 24 * len(drawn)} noenhanced
set output "{path}"
set xlabel "times R0 (processes of fld info: F0)"
set logscale x
set grid xtics
set key top right
set yrange [-1:{len(drawn)}]
set style fill solid 0.5
plot "$rows" using 2:1:(0.1):2:($1-0.35):($1+0.35):ytic(3) with boxxyerror title "measured", \\
     "$rows" using 4:1 with points pointtype 9 linecolor rgb "red" title "limit"
'''
    commands = '$rows << END\n' + '\n'.join(lines) + '\nEND\n' + commands.replace('"$rows"', '$rows')
    subprocess.run(['gnuplot'], input=commands, text=True, check=True)


def main():
    parser = argparse.ArgumentParser(prog='scripts/bench', description=__doc__)
    parser.add_argument('--scale', type=float, default=1, help='of all file sizes')
    parser.add_argument('--rounds', type=int, default=5)
    parser.add_argument('--only', choices=PARTS, action='append', help='a part; may be repeated')
    parser.add_argument('--library', help='the reader library, in place of the one built here')
    parser.add_argument('--json', metavar='FILE', help='keep the rows and every sample')
    parser.add_argument('--plot', metavar='FILE.png', help='draw the ratios')
    parser.add_argument('--build', required=True, help=argparse.SUPPRESS)
    parser.add_argument('--work', required=True, help=argparse.SUPPRESS)
    options = parser.parse_args()

    os.makedirs(options.work, exist_ok=True)
    signal.signal(signal.SIGTERM, lambda *_: sys.exit(1)) # removes the files too
    with tempfile.TemporaryDirectory(dir=options.work) as directory:
        bench = Bench(options, directory)
        for part in options.only or PARTS:
            getattr(bench, part)()
    print(file=sys.stderr)
    order = ['plain', 'Fortran', 'open', 'data', 'records', 'walls', 'process', 'growth', 'grids',
             'host', 'switch']
    rows = sorted(bench.rows, key=lambda row: order.index(row.part))
    print_table(rows)
    if options.json:
        save_json(options.json, bench, rows)
    if options.plot:
        plot(options.plot, rows)


main()
