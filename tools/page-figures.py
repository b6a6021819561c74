#!/usr/bin/env python3
"""page-figures.py [CLIP] [--build DIR] [--box X,Y,W,H] [--fuzz SECONDS]: how the page of `serve --http` does, in figures.

Plays a clip as if it were live (without one: a drawn scene) and measures on this machine's loopback:
how long a drawn box takes until it is tracked, how far off the records' box is, how far behind a slow viewer is, what
three viewers cost the tracker, and whether drawn requests crash the program. Prints one line per figure with its limit
and ends with 1 where one is missed. Needs Chromium for the first two.
"""
import argparse
import json
import os
import random
import shutil
import socket
import statistics
import subprocess
import sys
import tempfile
import threading
import time
import urllib.request

ROOT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
sys.path.insert(0, os.path.join(ROOT, 'tests', 'host', 'web'))
from browser import Browser  # noqa: E402
from page_test import Served, drag_box, opened, started  # noqa: E402
import page_test  # noqa: E402

missed = 0


def figure(what, value, unit, limit=None):
    global missed
    bad = limit is not None and value > limit
    missed += bad
    bar = '' if limit is None else f', limit {limit:g} {unit}'
    print(f"{'MISSED' if bad else 'ok    '} {what}: {value:.3g} {unit}{bar}", flush=True)


def drags(served, box, screens):
    """Answered after, ms; off, pixels."""
    waits, offs = [], []
    with Browser() as browser:
        for screen in screens:
            page = opened(browser, served, **screen)
            for _ in range(5):
                served.stop_all()
                before = len(served.starts())
                page.run("delete document.body.dataset.answered")
                drag_box(page, box, screen.get('touch', False))
                given = started(served, before + 1)['given_box']
                waits.append(float(page.wait_for('document.body.dataset.answered')))
                offs.append(max(abs(a - b) for a, b in zip((given['x'], given['y'], given['w'], given['h']), box)))
            page.close()
    return waits, offs


def behind(served, fps, seconds, pause):
    """How old the picture is that a viewer has, who takes so long over each, ms."""
    number, ages, end = -1, [], time.monotonic() + seconds
    while time.monotonic() < end:
        with urllib.request.urlopen(f'{served.url}frame?after={number}') as answer:
            answer.read()
            if answer.headers['Csrt-Frame'] is None:
                continue
            number = int(answer.headers['Csrt-Frame'])
        ages.append(1000 * (served.state()['frame'] - number) / fps)
        time.sleep(pause)
    return ages


def behind_mjpeg(served, fps, seconds, pause):
    """The same for a viewer of the stream."""
    ages, end = [], time.monotonic() + seconds
    with urllib.request.urlopen(served.url + 'stream.mjpeg') as stream:
        while time.monotonic() < end:
            head = {}
            while True:
                line = stream.readline().strip()
                if not line and head:
                    break
                if b':' in line:
                    key, value = line.split(b':', 1)
                    head[key.lower()] = value.strip()
            stream.read(int(head[b'content-length']))
            ages.append(1000 * (served.state()['frame'] - int(head[b'csrt-frame'])) / fps)
            time.sleep(pause)
    return ages


def thread_ms(pid):
    """Processor time of the thread that tracks, ms: the process's first one."""
    with open(f'/proc/{pid}/task/{pid}/schedstat', encoding='ascii') as file:
        return int(file.read().split()[0]) / 1e6


def cost(served, seconds):
    """Processor time of the tracking thread per frame, ms."""
    frames, begun = served.state()['frames'], thread_ms(served.process.pid)
    time.sleep(seconds)
    return (thread_ms(served.process.pid) - begun) / max(served.state()['frames'] - frames, 1)


def watch(served, over):
    number = -1
    while not over.is_set():
        try:
            with urllib.request.urlopen(f'{served.url}frame?after={number}') as answer:
                answer.read()
                number = int(answer.headers['Csrt-Frame'] or number)
        except OSError:
            time.sleep(0.1)


def viewers_cost(served, rounds, seconds):
    """Pairs of cost without and with three viewers, one after the other; the median of their ratios."""
    ratios = []
    for _ in range(rounds):
        alone = cost(served, seconds)
        over = threading.Event()
        viewers = [threading.Thread(target=watch, args=(served, over)) for _ in range(3)]
        for viewer in viewers:
            viewer.start()
        ratios.append(cost(served, seconds) / alone)
        over.set()
        for viewer in viewers:
            viewer.join()
    return statistics.median(ratios)


PATHS = ['/', '/frame', '/frame?after=', '/api/state', '/api/targets', '/api/stop', '/api/propose', '/api/config', '/api/run',
         '/api/timeline?after=', '/api/still?frame=', '/metrics', '/api/clip', '/stream.mjpeg', '/api/events', '/%', '/../..', '//']
BODIES = ['{}', '{"box":[1,2,3,4]}', '{"box":[1e308,-1,0,4]}', '{"point":[9e9,0],"frame":0}', '{"name":"\\u0000","box":[0,0,1,1]}',
          '{"config":{"roi":{"min_size":64}}}', '{"config":{"roi":{"min_size":1e999}}}', '{"preset":"robust"}', '[', '"', '{"keep":true}',
          '{"config":null}', '{"preset":5}', '{"config":{},"replace":"x"}', '{"name":[],"box":{}}', '\xff\xfe', '{"point":[null,null]}']
HEADS = ['Host: localhost', 'Host: 127.0.0.1', 'Host: x', 'X-Csrt-Track: 1', 'Content-Type: application/json', 'Content-Length: 7',
         'Transfer-Encoding: chunked', 'Content-Encoding: gzip', 'Authorization: Basic ::::', 'Range: bytes=0-1,5-,-9', 'Expect: 100-continue',
         'Connection: close', 'Connection: Upgrade', 'Accept-Encoding: gzip, br', 'Origin: null', 'Cookie: a=b', 'X: ' + 'y' * 5000]


def drawn_request(dice):
    method = dice.choice(['GET', 'POST', 'POST', 'POST', 'HEAD', 'PUT', 'DELETE', 'OPTIONS', 'G\0T', ''])
    body = dice.choice(BODIES)
    path = dice.choice(PATHS) + dice.choice(['', '1', '-1', '99999999999999999999', '%00', '?a=b&a=c', '\x7f'])
    heads = ['Host: localhost', 'X-Csrt-Track: 1', 'Content-Type: application/json', f'Content-Length: {len(body)}']
    heads = [head for head in heads if dice.random() < 0.9] + dice.sample(HEADS, dice.choice([0, 0, 0, 1, 2, 4]))
    text = f'{method} {path} HTTP/1.1\r\n' + ''.join(head + '\r\n' for head in heads) + '\r\n' + body
    data = bytearray(text.encode('latin-1'))
    for _ in range(dice.choice([0, 0, 0, 0, 1, 3, 20])):
        data[dice.randrange(len(data))] = dice.randrange(256)
    return bytes(data[:dice.randrange(1, len(data))] if dice.random() < 0.1 else data)


def fuzz(served, seconds, seed):
    port, dice, count, end = int(served.url.rsplit(':', 1)[1].strip('/')), random.Random(seed), 0, time.monotonic() + seconds
    while time.monotonic() < end:
        try:
            with socket.create_connection(('127.0.0.1', port), 5) as connection:
                connection.settimeout(0.2)
                for _ in range(dice.choice([1, 1, 1, 3])):
                    connection.sendall(drawn_request(dice))
                    count += 1
                if dice.random() < 0.7:
                    connection.recv(65536)
        except OSError:
            pass
        if served.process.poll() is not None:
            raise AssertionError(f'the program has ended after {count} requests')
    return count


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument('clip', nargs='?')
    parser.add_argument('--build', default=os.path.join(ROOT, 'build'))
    parser.add_argument('--box', default='300,200,60,70')
    parser.add_argument('--size', default='640,360', help="the clip's")
    parser.add_argument('--fps', type=float, default=25.0)
    parser.add_argument('--fuzz', type=float, default=20.0)
    options = parser.parse_args()
    program = os.path.join(options.build, 'bin', 'csrt-track')
    plugin = os.path.join(options.build, 'lib', 'libcsrt_tracking_plugin_fast.so')
    box = tuple(int(part) for part in options.box.split(','))
    page_test.SIZE = tuple(int(part) for part in options.size.split(','))
    with tempfile.TemporaryDirectory() as folder:
        scene = os.path.join(folder, 'scene.avi')
        subprocess.run([program, 'draw-scene', scene, '--frames', '2000'], check=True)
        clip = options.clip or scene
        live = ['--fps', str(options.fps)]
        if shutil.which('chromium'):
            screens = [{}, {'width': 900, 'height': 320, 'ratio': 2}, {'width': 360, 'height': 740, 'ratio': 3, 'touch': True}]
            with Served(program, plugin, clip, *live) as served:
                waits, offs = drags(served, box, screens)
                figure('a drawn box is answered, largest of %d' % len(waits), max(waits), 'ms', 300)
                figure('a drawn box is answered, median', statistics.median(waits), 'ms')
                figure('box in the records beside the drawn one', max(offs), 'pixels', 1)
        with Served(program, plugin, clip, *live) as served:
            ages = behind(served, options.fps, 15, 0.4)
            figure('a viewer of 400 ms a frame is behind, largest', max(ages), 'ms', 500)
            figure('the same, median', statistics.median(ages), 'ms')
            figure('the same with MJPEG, at the end', behind_mjpeg(served, options.fps, 15, 0.4)[-1], 'ms')
        with Served(program, plugin, scene) as served:  # its picture is such that the target is never lost
            served.order('api/targets', {'box': (300, 200, 60, 70)})
            time.sleep(1)
            before = served.encoded()
            alone = served.state()['frames']
            time.sleep(2)
            figure('frames encoded while nobody watches, of %d' % (served.state()['frames'] - alone), served.encoded() - before, 'frames', 0)
            figure('three viewers: processor time of the tracking thread, more', 100 * (viewers_cost(served, 5, 4) - 1), '%', 5)
        with Served(program, plugin, scene, '--fps', '4') as served:
            count = fuzz(served, options.fuzz, 1)
            state = served.state()
            figure(f'crashes in {count} drawn requests', int(state['ended']), 'crashes', 0)
    sys.exit(1 if missed else 0)


if __name__ == '__main__':
    main()
