# SPDX-License-Identifier: MIT
"""Finds the places of a C++ file where a one-line fault can be put, with libclang.

A fault is a dict: file, line and last (lines), kind, original and mutated (for people), edits (byte
ranges of the file with their replacement, in which @ stands for the number of the fault). Every
replacement keeps the number of lines, so that a compiler's errors and the lines that the program
logs stay true.
"""

import re

from clang.cindex import CursorKind as K, Index, TranslationUnit, TypeKind

COMPARISONS = {'<': '<=', '<=': '<', '>': '>=', '>=': '>', '==': '!=', '!=': '=='}
LOGIC = {'&&': '||', '||': '&&'}
ARITHMETIC = {'+': '-', '-': '+', '*': '/', '/': '*', '%': '*', '<<': '>>', '>>': '<<',
              '&': '|', '|': '&', '^': '&'}
ASSIGNMENTS = {'+=': '-=', '-=': '+=', '*=': '/=', '/=': '*=', '%=': '*=', '<<=': '>>=',
               '>>=': '<<=', '&=': '|=', '|=': '&=', '^=': '&='}
BINARY = {**COMPARISONS, **LOGIC, **ARITHMETIC}

FUNCTIONS = {K.FUNCTION_DECL, K.CXX_METHOD, K.CONSTRUCTOR, K.DESTRUCTOR, K.CONVERSION_FUNCTION,
             K.FUNCTION_TEMPLATE}
# sizeof and its like are not evaluated, the others want constants.
CONSTANT_CONTEXTS = {K.STATIC_ASSERT, K.CXX_UNARY_EXPR, K.ENUM_DECL, K.CXX_TYPEID_EXPR,
                     K.TYPE_ALIAS_DECL, K.TYPEDEF_DECL, K.USING_DECLARATION}
SEQUENCES = {K.COMPOUND_STMT, K.CASE_STMT, K.DEFAULT_STMT}
SYMMETRIC = {'min', 'max', 'qMin', 'qMax', 'swap', 'equal', 'abs', 'hypot', 'minmax'}

LOGGING = re.compile(rb'\s*(TRACE|q(Debug|Info|Warning|Critical)|complain\w*|failed|say|log[A-Z]\w*)\b')
INTEGER = re.compile(r"(0[xX][0-9a-fA-F']+|\d[\d']*)([uUlL]*)$")
FLOATING = re.compile(r'[\d.]+([eE][-+]?\d+)?[fF]?$')
COMMENT_OR_TEXT = re.compile(
    r'//[^\n]*|/\*.*?\*/|"(?:\\.|[^"\\\n])*"|\'(?:\\.|[^\'\\\n])*\'', re.DOTALL)


def one_line(text):
    """The code without its comments, in one line."""
    code = COMMENT_OR_TEXT.sub(lambda m: ' ' if m.group().startswith('/') else m.group(), text)
    return ' '.join(code.split())


class Finder:
    def __init__(self, path, name, arguments):
        self.path = path
        self.name = name
        with open(path, 'rb') as file:
            self.data = file.read()
        self.faults = []
        self.seen = set()
        self.unit = Index.create().parse(
            path, arguments, options=TranslationUnit.PARSE_DETAILED_PROCESSING_RECORD)
        self.macros = []

    def find(self):
        declarations = []
        for node in self.unit.cursor.get_children():
            extent = self.extent(node)
            if extent is None:
                continue
            if node.kind in (K.MACRO_INSTANTIATION, K.MACRO_DEFINITION, K.INCLUSION_DIRECTIVE):
                self.macros.append(extent)
            else:
                declarations.append(node)
        for node in declarations:
            self.visit(node, self.unit.cursor, None)
        return self.faults

    # -- the text -------------------------------------------------------------------------------

    def extent(self, node):
        start, end = node.extent.start, node.extent.end
        if start.file is None or start.file.name != self.path or end.file is None \
                or end.file.name != self.path or end.offset <= start.offset:
            return None
        return start.offset, end.offset

    def text(self, begin, end):
        return self.data[begin:end].decode()

    def in_macro(self, begin, end):
        """Whether the range is in a macro's arguments or cut by one."""
        return any(b <= begin and end <= e or b < begin < e or b < end < e for b, e in self.macros)

    def add(self, kind, extent, original, mutated, edits):
        begin, end = extent
        raw = self.data[begin:end]
        if self.in_macro(begin, end) or b'R"' in raw or re.search(rb'^\s*#', raw, re.MULTILINE):
            return
        if (kind, begin, end) in self.seen:
            return
        self.seen.add((kind, begin, end))
        self.faults.append({
            'file': self.name, 'kind': kind,
            'line': self.data.count(b'\n', 0, begin) + 1, 'last': self.data.count(b'\n', 0, end) + 1,
            'original': one_line(original), 'mutated': one_line(mutated), 'edits': edits})

    def replace(self, kind, extent, mutated):
        original = self.text(*extent)
        self.add(kind, extent, original, mutated,
                 [(*extent, f'(MUTANT(@) ? ({one_line(mutated)}) : ({original}))')])

    def negate(self, extent):
        original = self.text(*extent)
        self.add('negate', extent, original, f'!({original})',
                 [(*extent, f'(MUTANT(@) != static_cast<bool>({original}))')])

    # -- the tree -------------------------------------------------------------------------------

    def visit(self, node, parent, function):
        """`function` is what node lies in, or None outside of functions."""
        kind = node.kind
        if kind in CONSTANT_CONTEXTS:
            return
        extent = self.extent(node)
        if extent is None:
            return
        children = list(node.get_children())
        if kind in FUNCTIONS:
            body = [c for c in children if c.kind == K.COMPOUND_STMT]
            if not body or self.is_constexpr(extent, self.extent(body[0])):
                return
            function = node
            children = [c for c in children if c.kind.is_expression() or c.kind.is_statement()]
        elif kind == K.LAMBDA_EXPR:
            function = node
        elif kind == K.VAR_DECL:
            if function is None or b'constexpr' in self.data[extent[0]:node.location.offset]:
                return
        elif kind == K.PARM_DECL:
            return
        if kind in (K.VAR_DECL, K.FIELD_DECL): # without the sizes of arrays
            children = [c for c in children if not self.follows_bracket(c)]
        if kind == K.FIELD_DECL and node.is_bitfield():
            return
        if kind == K.CASE_STMT:
            children = children[1:]

        if kind.is_expression() or kind.is_statement():
            if LOGGING.match(self.data, extent[0]) and kind != K.COMPOUND_STMT:
                if kind != K.RETURN_STMT:
                    return
            self.look_at(node, extent, children, parent, function)
        for child in children:
            self.visit(child, node, function)

    def is_constexpr(self, extent, body):
        return body is None or re.search(rb'\b(constexpr|consteval)\b',
                                         self.data[extent[0]:body[0]]) is not None

    def follows_bracket(self, node):
        extent = self.extent(node)
        return extent is not None and self.data[:extent[0]].rstrip().endswith(b'[') \
            and node.kind != K.LAMBDA_EXPR

    def look_at(self, node, extent, children, parent, function):
        kind = node.kind
        if kind == K.BINARY_OPERATOR and len(children) == 2:
            self.binary(extent, children[0], children[1], BINARY)
        elif kind == K.COMPOUND_ASSIGNMENT_OPERATOR and len(children) == 2:
            self.binary(extent, children[0], children[1], ASSIGNMENTS)
        elif kind == K.UNARY_OPERATOR:
            self.unary(extent, parent)
        elif kind == K.CALL_EXPR:
            if re.fullmatch(r'operator[<>=!]=?', node.spelling) and len(children) == 3:
                self.binary(extent, children[0], children[2], COMPARISONS)
            else:
                self.swap(node, extent)
        elif kind in (K.INTEGER_LITERAL, K.FLOATING_LITERAL, K.CXX_BOOL_LITERAL_EXPR,
                      K.CHARACTER_LITERAL):
            self.literal(kind, extent)
        elif kind == K.CONDITIONAL_OPERATOR:
            self.condition(children[0])
        elif kind == K.IF_STMT:
            bodies = [i for i, c in enumerate(children) if c.kind == K.COMPOUND_STMT]
            if bodies and bodies[0] > 0:
                self.condition(children[bodies[0] - 1])
        elif kind == K.RETURN_STMT and children:
            self.result(node, extent, children[0], parent, function)

        if parent.kind in SEQUENCES:
            self.deletion(node, extent, children)

    def binary(self, extent, left, right, operators):
        left, right = self.extent(left), self.extent(right)
        if left is None or right is None or left[0] != extent[0] or right[1] != extent[1] \
                or left[1] > right[0]:
            return
        operator = one_line(self.text(left[1], right[0]))
        if operator not in operators or self.in_macro(left[1], right[0]):
            return
        other = operators[operator]
        kind = ('compare' if operator in COMPARISONS
                else 'logic' if operator in LOGIC else 'arithmetic')
        self.replace(kind, extent, f'{self.text(*left)} {other} {self.text(*right)}')

    def unary(self, extent, parent):
        text = self.text(*extent)
        if text.startswith('!'):
            self.add('negate', extent, text, text[1:], [(*extent, f'(MUTANT(@) != ({text}))')])
        elif parent.kind not in (K.FOR_STMT, K.BINARY_OPERATOR): # a loop that never ends costs time
            for operator, other in (('++', '--'), ('--', '++')):
                if text.startswith(operator):
                    self.replace('arithmetic', extent, other + text[2:])
                elif text.endswith(operator):
                    self.replace('arithmetic', extent, text[:-2] + other)

    def literal(self, kind, extent):
        text = self.text(*extent)
        if kind == K.CXX_BOOL_LITERAL_EXPR and text in ('true', 'false'):
            self.replace('constant', extent, 'false' if text == 'true' else 'true')
        elif kind == K.INTEGER_LITERAL and (match := INTEGER.match(text)):
            digits, suffix = match.groups()
            digits = digits.replace("'", '')
            if digits.isdigit() and (digits == '0' or digits[0] != '0'):
                self.replace('constant', extent, str(int(digits) + 1) + suffix)
            else:
                self.replace('constant', extent, text + ' + 1')
        elif kind == K.FLOATING_LITERAL and FLOATING.match(text):
            large = float(text.rstrip('fF')) >= 100
            self.replace('constant', extent, text + (' * 2' if large else ' + 1'))
        elif kind == K.CHARACTER_LITERAL and len(text) == 3 and text[1] not in '&[':
            self.replace('constant', extent, f"'{chr(ord(text[1]) + 1)}'") # & and [ come before ' and \

    def condition(self, node):
        """Negates it, unless a comparison or a ! in its place does the same."""
        extent = self.extent(node)
        if extent is None or not node.kind.is_expression():
            return
        while node.kind == K.UNEXPOSED_EXPR:
            inner = list(node.get_children())
            if len(inner) != 1 or self.extent(inner[0]) != extent:
                break
            node = inner[0]
        text = self.text(*extent)
        if text.startswith('!') or text in ('true', 'false'):
            return
        if node.kind == K.CALL_EXPR and re.fullmatch(r'operator[=!]=', node.spelling):
            return
        if node.kind == K.BINARY_OPERATOR:
            parts = [self.extent(c) for c in node.get_children()]
            if None in parts or one_line(self.text(parts[0][1], parts[1][0])) in ('==', '!='):
                return
        self.negate(extent)

    def result(self, node, extent, value, parent, function):
        where = self.extent(value)
        if where is None or LOGGING.match(self.data, where[0]):
            return
        text = self.text(*where)
        if value.type.get_canonical().kind == TypeKind.BOOL:
            self.condition(value)
            return
        if function is None or parent.kind not in SEQUENCES or text in ('{}', 'nullptr', '0'):
            return
        if function.kind in FUNCTIONS and function.result_type.get_canonical().kind in (
                TypeKind.LVALUEREFERENCE, TypeKind.RVALUEREFERENCE):
            return
        self.add('result', extent, self.text(*extent), 'return {}',
                 [(extent[0], extent[0], 'if (MUTANT(@)) { return {}; } ')])

    def swap(self, node, extent):
        if node.spelling in SYMMETRIC or (node.spelling.startswith('operator')
                                          and node.spelling != 'operator()'):
            return
        arguments = [(a, self.extent(a)) for a in node.get_arguments() if a is not None]
        for (first, a), (second, b) in zip(arguments, arguments[1:]):
            if a is None or b is None or not extent[0] <= a[0] < a[1] < b[0] < b[1] <= extent[1]:
                continue
            kinds = {re.sub(r'\bconst\b|&', '', v.type.get_canonical().spelling).strip()
                     for v in (first, second)}
            if len(kinds) != 1 or '(lambda' in kinds.pop() or self.in_macro(*a) or self.in_macro(*b):
                continue
            left, right = self.text(*a), self.text(*b)
            if one_line(left) == one_line(right) or '{' in (left[0], right[0]):
                continue
            self.add('swap', (a[0], b[1]), self.text(a[0], b[1]), f'{right}, {left}', [
                (*a, f'(MUTANT(@) ? ({one_line(right)}) : ({left}))'),
                (*b, f'(MUTANT(@) ? ({one_line(left)}) : ({right}))')])
            return

    def deletion(self, node, extent, children):
        if not (node.kind.is_expression() or node.kind in (K.BREAK_STMT, K.CONTINUE_STMT)
                or node.kind == K.RETURN_STMT and not children):
            return
        after = re.compile(rb'\s*;').match(self.data, extent[1])
        if after is None or self.in_macro(extent[1], after.end()):
            return
        begin, end = extent[0], after.end()
        statement = self.text(begin, end)
        self.add('delete', (begin, end), statement, ';',
                 [(begin, end, f'if (!MUTANT(@)) {{ {statement} }}')])


def find_faults(path, name, arguments):
    """The faults of the file at `path`, called `name` in the tree, compiled with `arguments`."""
    return Finder(path, name, arguments).find()
