#!/usr/bin/env python3
"""page_test.py PROGRAM PLUGIN [TEST...]: the page of `serve --http` in headless Chromium, on a drawn scene, as a person
uses it: drag, tap, keys, several targets, configuration. Loopback only. Exit 77 (skipped) without Chromium."""
import json
import os
import shutil
import subprocess
import sys
import tempfile
import time
import urllib.request

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
from browser import Browser  # noqa: E402

SIZE = (640, 360)


class Served:
    """The program with a drawn scene, and the records that it writes."""

    def __init__(self, program, plugin, source, *options):
        self.folder = tempfile.mkdtemp(prefix='csrt_page_')
        self.said = open(os.path.join(self.folder, 'said'), 'w+')
        self.records_path = os.path.join(self.folder, 'records.jsonl')
        self.program, self.plugin = program, plugin
        self.process = subprocess.Popen([program, 'serve', source, '--plugin', plugin, '--http', '127.0.0.1:0',
                                         '--http-save', os.path.join(self.folder, 'runs'), '--records', self.records_path,
                                         *options], stderr=self.said)
        self.url = self._address()

    def _address(self):
        for _ in range(1500):
            self.said.seek(0)
            for line in self.said.read().splitlines():
                if line.startswith('csrt-track: open '):
                    return line.split()[-1]
            if self.process.poll() is not None:
                break
            time.sleep(0.02)
        self.said.seek(0)
        raise RuntimeError('the program does not serve: ' + self.said.read())

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.process.terminate()
        self.process.wait()
        shutil.rmtree(self.folder, ignore_errors=True)

    def get(self, path):
        with urllib.request.urlopen(self.url + path, timeout=60) as answer:
            return answer.read()

    def state(self):
        return json.loads(self.get('api/state'))

    def order(self, path, what):
        request = urllib.request.Request(self.url + path, json.dumps(what).encode(),
                                         {'Content-Type': 'application/json', 'X-Csrt-Track': '1'})
        with urllib.request.urlopen(request, timeout=60) as answer:
            return json.loads(answer.read())

    def encoded(self):
        line = [text for text in self.get('metrics').decode().splitlines() if text.startswith('csrt_encoded_frames_total ')]
        return int(float(line[0].split()[1]))

    def starts(self):
        with open(self.records_path, encoding='utf-8') as file:
            records = [json.loads(line) for line in file.read().splitlines() if line.endswith('}')]
        return [record for record in records if record['call'] == 'init']

    def stop_all(self):
        self.order('api/stop', {})


def expect(true, what):
    if not true:
        raise AssertionError(what)


def opened(browser, served, **screen):
    page = browser.page(served.url, **screen)
    page.wait_for("document.body && document.body.dataset.ready === 'yes'")
    return page


def on_screen(page, point):
    """A place of the picture on the screen, as the style sheet lays the picture out: whole, in the middle."""
    left, top, width, height = page.run("(() => { const r = document.getElementById('picture').getBoundingClientRect();"
                                        ' return [r.left, r.top, r.width, r.height]; })()')
    size = SIZE
    scale = min(width / size[0], height / size[1])
    return (left + (width - scale * size[0]) / 2 + point[0] * scale, top + (height - scale * size[1]) / 2 + point[1] * scale)


def drag_box(page, box, touch=False):
    page.drag(on_screen(page, box[:2]), on_screen(page, (box[0] + box[2], box[1] + box[3])), touch)


def started(served, count, limit=60):
    end = time.monotonic() + limit
    while time.monotonic() < end:
        starts = served.starts()
        if len(starts) >= count:
            return starts[-1]
        time.sleep(0.02)
    raise AssertionError('no target was started')


def check_drag(browser, served, box, zoom=None, bars=False, **screen):
    """A box dragged on the screen is the box in the records, within a pixel, and it is tracked."""
    served.stop_all()
    before = len(served.starts())
    page = opened(browser, served, **screen)
    rect = page.run("(() => { const r = document.getElementById('stage').getBoundingClientRect(); return [r.width, r.height]; })()")
    wide = rect[0] / rect[1] > 1.05 * SIZE[0] / SIZE[1]
    expect(wide == bars, f'bars left and right of the picture: {wide}, stage {rect}')
    if zoom:
        page.call('Emulation.setPageScaleFactor', pageScaleFactor=zoom)
    drag_box(page, box, screen.get('touch', False))
    start = started(served, before + 1)
    given = start['given_box']
    off = [abs(a - b) for a, b in zip((given['x'], given['y'], given['w'], given['h']), box)]
    expect(max(off) <= 1, f'drawn {box}, started on {given}')
    expect(start['started'], 'the start was refused')
    page.wait_for("document.getElementById('banner').dataset.standing === 'tracked'")
    expect(not page.complaints, page.complaints)
    page.close()


BOX = (300, 200, 60, 70)


def test_drag_on_a_laptop(browser, served):
    check_drag(browser, served, BOX)


def test_drag_with_bars_on_a_2x_display(browser, served):
    check_drag(browser, served, BOX, width=900, height=320, ratio=2, bars=True)


def test_drag_by_touch_on_a_phone(browser, served):
    check_drag(browser, served, BOX, width=360, height=740, ratio=3, touch=True, dark=True)


def test_drag_on_a_zoomed_page(browser, served):
    check_drag(browser, served, (100, 120, 60, 70), zoom=1.6, width=900, height=700, ratio=2, touch=True)


def test_a_drag_beyond_the_picture_ends_at_its_edge(browser, served):
    served.stop_all()
    before = len(served.starts())
    page = opened(browser, served, width=900, height=320)
    x, y = on_screen(page, (560, 100))
    page.drag((x, y), (x + 300, y + 60))
    given = started(served, before + 1)['given_box']
    expect(given['x'] + given['w'] == SIZE[0], given)
    page.close()


def test_a_tap_proposes_and_only_then_tracks(browser, served):
    served.stop_all()
    before = len(served.starts())
    page = opened(browser, served)
    page.tap(on_screen(page, (330, 235)))
    page.wait_for("!document.getElementById('ask').hidden")
    expect(len(served.starts()) == before, 'a proposal started something')
    page.run("document.getElementById('take').click()")
    start = started(served, before + 1)
    box = start['given_box']
    expect(box['x'] <= 330 <= box['x'] + box['w'] and box['y'] <= 235 <= box['y'] + box['h'], box)
    page.wait_for("document.getElementById('ask').hidden")
    page.close()


def test_escape_and_cancel_take_nothing(browser, served):
    served.stop_all()
    before = len(served.starts())
    page = opened(browser, served)
    page.tap(on_screen(page, (330, 235)))
    page.wait_for("!document.getElementById('ask').hidden")
    page.run("document.getElementById('cancel').click()")
    page.wait_for("document.getElementById('ask').hidden")
    page.run("document.getElementById('stage').focus()")
    page.key('Enter')
    page.wait_for("!document.getElementById('ask').hidden")
    page.key('Escape')
    page.wait_for("document.getElementById('ask').hidden")
    expect(len(served.starts()) == before, 'something was started')
    page.close()


def test_keys_alone_choose_and_stop(browser, served):
    served.stop_all()
    before = len(served.starts())
    page = opened(browser, served)
    for _ in range(30):
        page.key('Tab')
        if page.run("document.activeElement.id === 'stage'"):
            break
    expect(page.run("document.activeElement.id === 'stage'"), 'Tab does not reach the picture')
    page.key('ArrowLeft')
    page.key('ArrowDown')
    page.key('Enter')
    page.wait_for("!document.getElementById('ask').hidden")
    page.key('+')
    page.key('ArrowRight', shift=True)
    page.key('Enter')
    start = started(served, before + 1)
    expect(start['started'], start)
    page.wait_for("document.getElementById('targets').children.length === 1")
    page.key('s')
    page.wait_for("document.getElementById('targets').children.length === 0")
    expect(not page.complaints, page.complaints)
    page.close()


def test_several_targets_have_names(browser, served):
    served.stop_all()
    page = opened(browser, served)
    drag_box(page, BOX)
    page.wait_for("document.getElementById('targets').children.length === 1")
    page.run("document.getElementById('newTarget').click()")
    page.run("(() => { const n = document.getElementById('freshName'); n.value = 'boat 2'; n.dispatchEvent(new Event('input')); })()")
    drag_box(page, (100, 220, 50, 60))
    page.wait_for("document.getElementById('targets').children.length === 2")
    expect({target['name'] for target in served.state()['targets']} == {'target', 'boat 2'}, served.state())
    page.run("document.querySelector('[aria-label=\"Stop target\"]').click()")
    page.wait_for("document.getElementById('targets').children.length === 1")
    expect([target['name'] for target in served.state()['targets']] == ['boat 2'], served.state())
    page.close()


def test_configuration_is_taken_live_and_faults_are_shown(browser, served):
    page = opened(browser, served)
    page.run("document.getElementById('settings').open = true")
    page.wait_for("document.getElementById('key-roi-margin_factor') !== null")
    write = ("(() => {{ const f = document.getElementById('key-roi-margin_factor'); f.value = '{}';"
             " f.dispatchEvent(new Event('change')); }})()")
    page.run(write.format(99))
    page.wait_for("document.getElementById('key-roi-margin_factor').getAttribute('aria-invalid') === 'true'")
    page.run(write.format(3.5))
    page.wait_for("document.querySelector('.key.differs label')?.textContent.startsWith('margin_factor')")
    values = json.loads(served.get('api/config'))['values']
    expect(values['roi']['margin_factor'] == 3.5, values['roi'])
    page.run("document.querySelector('.key.differs .small').click()")
    page.wait_for("!document.querySelector('.key.differs')")
    page.run("(() => { const p = document.getElementById('preset'); p.value = 'robust'; p.dispatchEvent(new Event('change')); })()")
    page.wait_for("document.getElementById('settingsSaid').textContent.includes('robust')")
    config = json.loads(served.get('api/config'))
    expect(config['values'] == config['presets']['robust'], 'the preset is not in force')
    served.order('api/config', {'preset': 'defaults'})
    page.close()


def test_a_still_a_clip_and_a_run_are_saved(browser, served):
    page = opened(browser, served)
    page.run("document.getElementById('saving').open = true")
    page.wait_for("!document.getElementById('keepRun').disabled")
    page.run("document.getElementById('keepRun').click()")
    page.wait_for("document.getElementById('runSaid').textContent.includes('The next target')")
    page.tap(on_screen(page, (330, 235)))
    page.wait_for("!document.getElementById('ask').hidden")
    page.run("document.getElementById('take').click()")
    page.wait_for("document.getElementById('runSaid').textContent.includes('Being saved')")
    still = served.get('api/still?drawn=1')
    expect(still[:4] == b'\x89PNG', still[:20])
    clip = served.get('api/clip')
    expect(clip[4:8] == b'ftyp', clip[:20])
    page.run("document.getElementById('keepRun').click()")
    page.wait_for("document.getElementById('runSaid').textContent.includes('Saved:')")
    folder = json.loads(served.get('api/run'))['folder']
    page.close()
    replayed = subprocess.run([served.program, 'replay', folder, '--plugin', served.plugin], capture_output=True, text=True)
    expect(replayed.returncode == 0, replayed.stdout + replayed.stderr)


def test_nothing_is_asked_of_other_addresses(browser, served):
    page = opened(browser, served)
    page.wait_for("document.getElementById('strip').dataset !== undefined && performance.now() > 2500")
    foreign = [url for url in page.asked if not url.startswith((served.url, 'about:', 'blob:' + served.url))]
    expect(not foreign, foreign)
    expect(not page.complaints, page.complaints)
    page.close()


def test_the_picture_stays_where_it_is(browser, served):
    for screen in ({}, {'width': 360, 'height': 740, 'touch': True}):
        page = opened(browser, served, **screen)
        place = "document.getElementById('stage').getBoundingClientRect().top"
        before = page.run(place)
        drag_box(page, BOX, screen.get('touch', False))
        page.wait_for("document.getElementById('banner').dataset.standing === 'tracked'")
        expect(page.run(place) == before, f'moved from {before} to {page.run(place)}')
        page.run("document.getElementById('words').textContent = 'Lost: every search for it failed, and more words than fit'")
        expect(page.run(place) == before, f'moved from {before} to {page.run(place)}')
        served.stop_all()
        page.wait_for("document.getElementById('banner').dataset.standing === 'idle'")
        page.close()


def test_nothing_is_encoded_while_nobody_watches(_browser, served):
    time.sleep(0.5)
    before, frame = served.encoded(), served.state()['frame']
    while served.state()['frame'] < frame + 20:
        time.sleep(0.05)
    expect(served.encoded() == before, 'frames were encoded for nobody')


def test_a_narrow_screen_needs_no_scrolling_sideways(browser, served):
    page = opened(browser, served, width=360, height=740, ratio=2, touch=True)
    page.run("for (const d of document.querySelectorAll('details')) d.open = true")
    page.wait_for("document.getElementById('key-roi-margin_factor') !== null")
    expect(page.run('document.documentElement.scrollWidth') <= 360, page.run('document.documentElement.scrollWidth'))
    small = page.run("[...document.querySelectorAll('main button, main select')].filter(b => b.offsetParent && b.offsetHeight < 34)"
                     '.map(b => b.id || b.textContent)')
    expect(not small, f'too low for a finger: {small}')
    page.close()


def test_places_on_the_screen_become_places_in_the_picture(browser, served):
    page = opened(browser, served)
    wrong = page.run("""(async () => {
      const g = await import('/geometry.mjs'), wrong = [], frame = { width: 640, height: 360 };
      const near = (a, b) => Math.abs(a - b) < 1e-9;
      const at = (place, stage, x, y, inside = true) => {
        const got = g.toFrame(place, frame, stage);
        if (!near(got.x, x) || !near(got.y, y) || got.inside !== inside) wrong.push([place, stage, got]);
      };
      const plain = { left: 10, top: 20, width: 640, height: 360 };
      at({ x: 10, y: 20 }, plain, 0, 0);
      at({ x: 650, y: 380 }, plain, 640, 360);
      at({ x: 9, y: 20 }, plain, -1, 0, false);
      const besides = { left: 0, top: 0, width: 1000, height: 360 };  // bars of 180 left and right
      at({ x: 180, y: 0 }, besides, 0, 0);
      at({ x: 179, y: 0 }, besides, -1, 0, false);
      at({ x: 820, y: 180 }, besides, 640, 180);
      const above = { left: 5, top: 7, width: 320, height: 640 };  // half as large, bars of 230 above and below
      at({ x: 5, y: 237 }, above, 0, 0);
      at({ x: 165, y: 327 }, above, 320, 180);
      at({ x: 165, y: 236 }, above, 320, -2, false);
      const equal = (a, b) => { if (JSON.stringify(a) !== JSON.stringify(b)) wrong.push([a, b]); };
      equal(g.boxBetween({ x: 50.4, y: 60.6 }, { x: 10.2, y: 20.2 }, frame), [10, 20, 40, 41]);
      equal(g.boxBetween({ x: -50, y: -9 }, { x: 900, y: 900 }, frame), [0, 0, 640, 360]);
      equal(g.boxBetween({ x: 640, y: 360 }, { x: 700, y: 400 }, frame), [639, 359, 1, 1]);
      equal(g.adjusted([10, 10, 20, 20], { wider: 4, higher: 4 }, frame), [8, 8, 24, 24]);
      equal(g.adjusted([0, 0, 5, 5], { wider: -4, x: -3 }, frame), [0, 0, 4, 5]);
      equal(g.adjusted([600, 300, 40, 60], { x: 50, y: 50 }, frame), [600, 300, 40, 60]);
      if (!g.isTap({ x: 0, y: 0 }, { x: 8, y: 0 }, true) || g.isTap({ x: 0, y: 0 }, { x: 8, y: 0 }, false)) wrong.push('tap');
      return wrong;
    })()""")
    expect(wrong == [], wrong)
    page.close()


def main():
    if shutil.which('chromium') is None:
        print('skipped: chromium is not installed')
        sys.exit(77)
    program, plugin, wanted = sys.argv[1], sys.argv[2], sys.argv[3:]
    tests = {name: test for name, test in globals().items() if name.startswith('test_') and (not wanted or name in wanted)}
    failed = 0
    with tempfile.TemporaryDirectory() as folder:
        scene = os.path.join(folder, 'scene.avi')
        subprocess.run([program, 'draw-scene', scene, '--frames', '1000'], check=True)
        with Browser() as browser:
            for name, test in tests.items():
                began = time.monotonic()
                try:
                    with Served(program, plugin, scene, '--fps', '10') as served:
                        test(browser, served)
                    print(f'ok   {name} ({time.monotonic() - began:.1f} s)', flush=True)
                except Exception as fault:  # the others are still to be tried
                    failed += 1
                    print(f'FAIL {name}: {fault}', flush=True)
    sys.exit(1 if failed or not tests else 0)


if __name__ == '__main__':
    main()
