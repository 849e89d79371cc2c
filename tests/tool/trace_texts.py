"""Texts of trace data files, for the tests that run the tool as a program."""


def start(level, opcode, name):
    return f"S,{level},0,{opcode},0,{name},0,a.c,12,10,77,prog,0,/part,1\n"


def end(total_ns, calls=1):
    return f"F,{total_ns // 10**9}.{total_ns % 10**9:09},2,{calls},0.000000001,0.9,0,0,0,0,0,0,0\n"


def block(paths, tid=77):
    frame = f"S,0,0,-2,0,VRT_OP_ELAPSED,1700000000.000000000,f.cpp,2240,10,{tid},prog,0,,0\n"
    return frame + paths.replace(",10,77,", f",10,{tid},") + "F,1700000100.000000000,0,1,0,0,0,0,0,0,0,0,0\n"


def large_tree(paths):
    """A block with so many distinct paths: each operation calls two others, down to the twelfth level."""
    lines = []
    left = paths

    def add(number, level, total_ns):
        nonlocal left
        left -= 1
        lines.append(start(level, 1 + number % 997, f"op_{number % 997}"))
        for callee in (2 * number, 2 * number + 1):
            if level < 12 and left > 0:
                add(callee, level + 1, total_ns * 45 // 100)
        lines.append(end(total_ns))

    number = 1
    while left > 0:
        add(number, 1, 10**9)
        number += 1
    return block("".join(lines))
