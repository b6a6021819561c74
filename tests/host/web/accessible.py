#!/usr/bin/env python3
"""accessible.py PROGRAM PLUGIN AXE: nothing serious for axe-core in any state of the page."""
import json
import os
import shutil
import subprocess
import sys
import tempfile

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
from browser import Browser  # noqa: E402
from page_test import BOX, Served, drag_box, opened  # noqa: E402


def faults(page, axe):
    page.run(axe)
    results = json.loads(page.run("axe.run(document, { resultTypes: ['violations'] }).then(r => JSON.stringify(r.violations))"))
    return [f"{v['id']} ({v['impact']}): " + '; '.join(' '.join(map(str, n['target'])) for n in v['nodes'])
            for v in results if v['impact'] in ('serious', 'critical')]


def main():
    if shutil.which('chromium') is None:
        print('skipped: chromium is not installed')
        sys.exit(77)
    program, plugin = sys.argv[1:3]
    with open(sys.argv[3], encoding='utf-8') as file:
        axe = file.read()
    failed = 0
    with tempfile.TemporaryDirectory() as folder, Browser() as browser:
        scene = os.path.join(folder, 'scene.avi')
        subprocess.run([program, 'draw-scene', scene, '--frames', '1000'], check=True)
        for screen in ({}, {'dark': True}, {'width': 360, 'height': 740, 'touch': True}, {'width': 360, 'height': 740, 'touch': True, 'dark': True}):
            with Served(program, plugin, scene, '--fps', '10') as served:
                page = opened(browser, served, **screen)
                page.run("for (const d of document.querySelectorAll('details')) d.open = true")
                page.wait_for("document.getElementById('key-roi-margin_factor') !== null")
                states = [('idle', faults(page, axe))]
                drag_box(page, BOX, screen.get('touch', False))
                page.wait_for("document.getElementById('banner').dataset.standing === 'tracked'")
                page.run("document.getElementById('newTarget').click()")
                served.order('api/config', {'config': {'roi': {'margin_factor': 3.5}}})
                page.wait_for("document.querySelector('.key.differs') !== null")
                states.append(('tracked, with a change', faults(page, axe)))
                for standing in ('waiting', 'predicted', 'searching', 'lost', 'no_signal'):
                    page.run("(() => { const b = document.getElementById('banner'), s = '" + standing + "'; document.getElementById('pause').click();"
                             ' b.dataset.standing = s; })()')
                    states.append((standing, faults(page, axe)))
                    page.run("document.getElementById('pause').click()")
                page.close()
            for state, found in states:
                print('FAIL' if found else 'ok  ', screen, state, *found, sep=' ', flush=True)
                failed += len(found)
    sys.exit(1 if failed else 0)


if __name__ == '__main__':
    main()
