"""Writes the type stubs (rova.pyi) of the built rova module, from the signatures and
docstrings the module carries, so that editors and mypy see its API as it is built.

  python3 stubgen.py MODULE_DIR OUTPUT
"""

import re
import sys

TYPES = {"object": "Any", "handle": "Any", "kwargs": "Any", "args": "Any", "none": "None",
         "function": "Any", "capsule": "Any", "iterator": "Iterator[Any]"}


# Types the module had not registered yet when a signature named them.
INTERNAL = {"PyState": "State", "PyCursor": "CollectionIterator", "PyValue": "Value",
            "LineStream": "Lines", "PyCollection": "Collection"}


def py_type(text):
    text = text.strip().replace("rova.", "")
    text = re.sub(r"rovapy::(\w+)", lambda m: INTERNAL.get(m.group(1), "Any"), text)
    text = re.sub(r"\b(object|handle|kwargs|args|function|capsule|iterator)\b",
                  lambda m: TYPES[m.group(1)], text)
    return text or "Any"


def split_params(text):
    depth, part, out = 0, "", []
    for c in text:
        if c in "[(":
            depth += 1
        elif c in "])":
            depth -= 1
        if c == "," and depth == 0:
            out.append(part)
            part = ""
        else:
            part += c
    if part.strip():
        out.append(part)
    return out


def signature(name, doc, method):
    """'name(a: int, b: str = None) -> str' from the first line of a pybind11 docstring."""
    first = (doc or "").split("\n", 1)[0]
    m = re.match(r"^\w+\((.*)\)(?: -> (.*))?$", first)
    params = ["self"] if method else []
    result = "Any"
    if m:
        result = py_type(m.group(2) or "None")
        for p in split_params(m.group(1)):
            p = p.strip()
            star = "**" if p.startswith("**") else "*" if p.startswith("*") else ""
            p = p.lstrip("*")
            pname, _, rest = p.partition(":")
            ptype, _, default = rest.partition("=")
            pname = pname.strip()
            if method and pname == "self":
                continue
            entry = f"{star}{pname}: {py_type(ptype)}"
            if default.strip():
                entry += " = ..."
            params.append(entry)
    else:
        params += ["*args: Any", "**kwargs: Any"]
    text = (doc or "").split("\n", 1)[1].strip() if doc and "\n" in doc else ""
    body = f'\n    """{text}"""' if text and not method else (
        f'\n        """{text}"""' if text else "")
    return f"def {name}({', '.join(params)}) -> {result}:{body if body else ' ...'}"


def main():
    sys.path.insert(0, sys.argv[1])
    import rova
    out = ['"""Type stubs of the rova module, generated from the module when it is built."""',
           "", "from typing import Any, Dict, Iterator, List, Optional, Tuple, Union", "", ""]
    out.append("__version__: str")
    out.append("")
    errors = [n for n, v in vars(rova).items() if isinstance(v, type) and
              issubclass(v, BaseException)]
    for name in sorted(errors, key=lambda n: len(getattr(rova, n).__mro__)):
        cls = getattr(rova, name)
        bases = ", ".join(b.__name__ for b in cls.__bases__)
        out += [f"class {name}({bases}):", f'    """{cls.__doc__}"""', ""]
    for name, cls in vars(rova).items():
        if not isinstance(cls, type) or issubclass(cls, BaseException):
            continue
        out.append(f"class {name}:")
        out.append(f'    """{cls.__doc__}"""')
        for attr, v in vars(cls).items():
            if attr.startswith("__") and attr not in ("__iter__", "__next__", "__enter__",
                                                      "__exit__", "__getattr__", "__setattr__",
                                                      "__getitem__", "__eq__", "__str__"):
                continue
            if attr.startswith("_pybind11"):
                continue
            if isinstance(v, property):
                out.append(f"    @property\n    def {attr}(self) -> Any:\n"
                           f'        """{v.__doc__ or ""}"""')
            elif isinstance(v, staticmethod) or type(v).__name__ == "staticmethod":
                fn = getattr(cls, attr)
                out.append("    @staticmethod")
                out.append("    " + signature(attr, fn.__doc__, False).replace("\n    ", "\n        "))
            elif callable(v):
                out.append("    " + signature(attr, getattr(v, "__doc__", ""), True))
        out.append("")
    for name, fn in vars(rova).items():
        if callable(fn) and not isinstance(fn, type):
            out.append(signature(name, fn.__doc__, False))
            out.append("")
    with open(sys.argv[2], "w") as f:
        f.write("\n".join(out) + "\n")


if __name__ == "__main__":
    main()
