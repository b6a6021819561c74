"""Drives headless Chromium over its debugging pipe: no port, no package beyond Python's own library."""
import base64
import json
import os
import shutil
import subprocess
import tempfile
import threading
import time


class Browser:
    """One browser process with a profile of its own. Use it in a with statement."""

    def __init__(self):
        self.folder = tempfile.mkdtemp(prefix='csrt_browser_')
        to_child, self._to = os.pipe()
        self._from, from_child = os.pipe()
        command = ['chromium', '--headless', '--no-sandbox', '--disable-gpu', '--no-first-run', '--disable-sync',
                   '--disable-background-networking', '--disable-component-update', '--disable-quic',
                   '--remote-debugging-pipe', '--user-data-dir=' + self.folder, 'about:blank']
        # The browser reads its file descriptor 3 and writes to 4.
        shell = f'exec 3<&{to_child} 4>&{from_child}; exec "$@"'
        self._process = subprocess.Popen(['bash', '-c', shell, 'chromium'] + command, pass_fds=(to_child, from_child),
                                         stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        os.close(to_child)
        os.close(from_child)
        self._next = 0
        self._answers = {}
        self._listeners = []
        self._changed = threading.Condition()
        threading.Thread(target=self._read, daemon=True).start()

    def __enter__(self):
        return self

    def __exit__(self, *_):
        try:
            self.call('Browser.close')
            self._process.wait(10)
        except Exception:
            self._process.kill()
            self._process.wait()
        os.close(self._to)
        shutil.rmtree(self.folder, ignore_errors=True)

    def _read(self):
        waiting = b''
        while True:
            try:
                more = os.read(self._from, 1 << 16)
            except OSError:
                more = b''
            if not more:
                with self._changed:
                    self._answers[None] = True
                    self._changed.notify_all()
                return
            *whole, waiting = (waiting + more).split(b'\0')
            for text in whole:
                self._take(json.loads(text))

    def _take(self, message):
        with self._changed:
            if 'id' in message:
                self._answers[message['id']] = message
                self._changed.notify_all()
        if 'method' in message:
            for listener in list(self._listeners):
                listener(message)

    def call(self, method, session=None, limit=60, **parameters):
        with self._changed:
            self._next += 1
            number = self._next
        message = {'id': number, 'method': method, 'params': parameters}
        if session:
            message['sessionId'] = session
        os.write(self._to, json.dumps(message).encode() + b'\0')
        with self._changed:
            if not self._changed.wait_for(lambda: number in self._answers or None in self._answers, limit):
                raise TimeoutError(method)
            answer = self._answers.pop(number, {'error': {'message': 'the browser has ended'}})
        if 'error' in answer:
            raise RuntimeError(f"{method}: {answer['error']['message']}")
        return answer['result']

    def page(self, url, **screen):
        return Page(self, url, **screen)


class Page:
    """A tab of a given screen. `asked` are the addresses it requested, `complaints` what its console said."""

    def __init__(self, browser, url, width=1280, height=800, ratio=1, touch=False, dark=False):
        self.browser = browser
        self.asked, self.complaints = [], []
        self.target = browser.call('Target.createTarget', url='about:blank')['targetId']
        self.session = browser.call('Target.attachToTarget', targetId=self.target, flatten=True)['sessionId']
        browser._listeners.append(self._hear)
        for domain in ('Page', 'Runtime', 'Network', 'Log'):
            self.call(domain + '.enable')
        self.call('Emulation.setDeviceMetricsOverride', width=width, height=height, deviceScaleFactor=ratio, mobile=touch)
        self.call('Emulation.setTouchEmulationEnabled', enabled=touch, maxTouchPoints=1)
        self.call('Emulation.setEmulatedMedia', features=[{'name': 'prefers-color-scheme', 'value': 'dark' if dark else 'light'}])
        self.call('Page.navigate', url=url)

    def _hear(self, message):
        if message.get('sessionId') != self.session:
            return
        method, told = message['method'], message['params']
        if method == 'Network.requestWillBeSent':
            self.asked.append(told['request']['url'])
        elif method == 'Runtime.consoleAPICalled' and told['type'] in ('error', 'warning', 'assert'):
            self.complaints.append(str([a.get('value', a.get('description')) for a in told['args']]))
        elif method == 'Runtime.exceptionThrown':
            details = told['exceptionDetails']
            self.complaints.append(details.get('exception', {}).get('description', details['text']))
        elif method == 'Log.entryAdded' and told['entry']['level'] in ('error', 'warning'):
            self.complaints.append(told['entry']['text'] + ' ' + told['entry'].get('url', ''))

    def call(self, method, **parameters):
        return self.browser.call(method, self.session, **parameters)

    def close(self):
        self.browser._listeners.remove(self._hear)
        self.browser.call('Target.closeTarget', targetId=self.target)

    def run(self, script):
        """The value of an expression, which may be a promise."""
        answer = self.call('Runtime.evaluate', expression=script, awaitPromise=True, returnByValue=True, userGesture=True)
        if 'exceptionDetails' in answer:
            raise RuntimeError(answer['exceptionDetails'].get('exception', {}).get('description', script))
        return answer['result'].get('value')

    def wait_for(self, script, limit=60):
        """Until the expression is true. The limit is for a page that is broken, not for a slow machine."""
        end = time.monotonic() + limit
        while time.monotonic() < end:
            value = self.run(script)
            if value:
                return value
            time.sleep(0.02)
        raise AssertionError('never became true: ' + script)

    def mouse(self, kind, x, y, pressed=True):
        self.call('Input.dispatchMouseEvent', type=kind, x=x, y=y, button='left' if pressed else 'none', clickCount=1,
                  buttons=1 if kind != 'mouseReleased' and pressed else 0)

    def touch(self, kind, *points):
        self.call('Input.dispatchTouchEvent', type=kind, touchPoints=[{'x': x, 'y': y} for x, y in points])

    def drag(self, begin, end, touch=False):
        steps = [(begin[0] + (end[0] - begin[0]) * i / 4, begin[1] + (end[1] - begin[1]) * i / 4) for i in range(1, 5)]
        if touch:
            self.touch('touchStart', begin)
            for step in steps:
                self.touch('touchMove', step)
            self.touch('touchEnd')
            return
        self.mouse('mouseMoved', *begin, pressed=False)
        self.mouse('mousePressed', *begin)
        for step in steps:
            self.mouse('mouseMoved', *step)
        self.mouse('mouseReleased', *end)

    def tap(self, place, touch=False):
        if touch:
            self.touch('touchStart', place)
            self.touch('touchEnd')
        else:
            self.mouse('mouseMoved', *place, pressed=False)
            self.mouse('mousePressed', *place)
            self.mouse('mouseReleased', *place)

    def key(self, key, shift=False):
        text = key if len(key) == 1 else '\r' if key == 'Enter' else ''
        for kind in ('keyDown', 'keyUp'):
            self.call('Input.dispatchKeyEvent', type=kind, key=key, modifiers=8 if shift else 0,
                      windowsVirtualKeyCode={'Enter': 13, 'Tab': 9, 'Escape': 27}.get(key, 0),
                      **({'text': text} if text and kind == 'keyDown' else {}))

    def picture(self, path, whole=False):
        shot = self.call('Page.captureScreenshot', format='png', captureBeyondViewport=whole)
        with open(path, 'wb') as file:
            file.write(base64.b64decode(shot['data']))
