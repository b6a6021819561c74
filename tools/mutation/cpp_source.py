"""Just enough C++ to place a mutation: what is code, and which function a place belongs to."""
import re

_TOKEN = re.compile(
    r'R"(?P<delimiter>\w*)\((?s:.*?)\)(?P=delimiter)"'  # raw strings first: they may hold anything
    r'|"(?:\\.|[^"\\\n])*"|\'(?:\\.|[^\'\\\n])+\'|//[^\n]*|/\*(?s:.*?)\*/|^[ \t]*#(?:[^\n\\]|\\\n|\\.)*', re.MULTILINE)
_FUNCTION = re.compile(r'\)\s*(?:const\s*)?(?:noexcept\s*)?(?:override\s*)?$')
_TYPE = re.compile(r'^\s*(?:template\s*<[^{}]*>\s*)?(?:class|struct|enum|union)\b')


def blank_non_code(text):
    """The text with comments, literals and preprocessor lines overwritten by spaces; every place stays put."""
    return _TOKEN.sub(lambda m: re.sub(r'[^\n]', ' ', m.group()), text)


def function_bodies(code):
    """[(first, last)]: offsets of the opening and of the closing brace of every outermost function body."""
    bodies, scopes, start = [], [], 0
    for place, char in ((m.start(), m.group()) for m in re.finditer(r'[{};]', code)):
        inside = 'function' in scopes or 'other' in scopes
        if char == '{':
            head = re.sub(r'^(?:\s*(?:public|protected|private):)+', '', code[start:place]).strip()
            if inside:
                scopes.append('inner')
            elif head.startswith(('namespace', 'extern')):
                scopes.append('namespace')
            elif _TYPE.match(head):
                scopes.append('type')
            elif _FUNCTION.search(head) or re.search(r'\)\s*:\s*\w', head):
                scopes.append('function')
                bodies.append([place, None])
            else:
                scopes.append('other')
        elif char == '}':
            if scopes.pop() == 'function':
                bodies[-1][1] = place
        if not inside or char == '}':
            start = place + 1
    return [tuple(body) for body in bodies]
