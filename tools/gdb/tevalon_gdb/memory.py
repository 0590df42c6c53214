"""Variables, types and values of the inferior.

Nothing here needs a frame, a register or a call into the inferior: only global variables, what they
lead to, and types. Types of the C++ library are read by their layout, which its ABI fixes: with
compilers that describe such types only in the C++ library's own debug information, and without
anybody else's pretty-printers, the same code works.
"""

import struct

import gdb

BASE = 'tevalon::base::'
LIBRARY = 'libtevalon-base'


class Failure(Exception):
    """A command cannot do what it is asked; the text says why and what helps."""


class Damaged(Exception):
    """What is in memory cannot be what it should be."""


# What reading may raise where memory is missing or makes no sense.
READ_ERRORS = (gdb.error, Damaged, OverflowError)


def library():
    """The object file of the shared library; None where the program is linked with the static one
    or has not loaded it."""
    for objfile in gdb.objfiles():
        if objfile.owner is None and LIBRARY in (objfile.filename or '').rsplit('/', 1)[-1]:
            return objfile
    return None


def _symbols(name):
    """All of this name. Link-time optimisation describes a variable twice: where it was, without
    an address, and where it is."""
    yield from gdb.lookup_static_symbols(name)
    for objfile in gdb.objfiles():
        symbol = objfile.lookup_global_symbol(name)
        if symbol is not None:
            yield symbol


def variable_if_linked(name):
    """The global variable `tevalon::base::NAME`. None where there is none: a program that the static
    library is linked into has no more of it than it uses."""
    for symbol in _symbols(BASE + name):
        value = symbol.value()
        if value.address is not None:
            return value
    return None


def list_of_activities():
    """What threads do: whatever uses the library has it. Raises Failure where it is not to be had,
    and with it nothing else."""
    first = variable_if_linked('activity::(anonymous namespace)::g_first')
    if first is None:
        raise Failure(_why_missing())
    return first


def linked(name, type_name):
    """What the variable of this linkage name holds, as a number of the type; 0 where it is not to
    be had. By the symbol table, which every library and program has of what it exports."""
    try:
        address = int(gdb.parse_and_eval("(char *) &'%s'" % name))
        return int(at(address, gdb.lookup_type(type_name)))
    except gdb.error:
        return 0


def _what_helps():
    objfile = library()
    of_build = ' (build id %s)' % objfile.build_id if objfile and objfile.build_id else ''
    return ('install the package libtevalon-base1-dbgsym of the same version as the library%s, '
            'or name its folder with `set debug-file-directory`; one that you build yourself needs '
            '-g, as CMAKE_BUILD_TYPE=RelWithDebInfo gives it' % of_build)


def _why_missing():
    objfile = library()
    if not gdb.objfiles():
        return 'there is no program: name it with `file PROGRAM`, or start gdb with it'
    if any(_symbols(BASE + 'bootID()')):
        return ('the library was built without recorder and state report '
                '(TEVALON_BASE_DIAGNOSTICS=OFF): it keeps no list of what its threads do')
    if objfile is not None:
        return 'no debug information for %s: %s' % (objfile.filename, _what_helps())
    return ('no libtevalon-base.so is loaded: for a core, name the folder that has the libraries '
            'of its machine with `set sysroot FOLDER` or `set solib-search-path FOLDER`; one that '
            'is cut off has lost them')


def type_of(name):
    """The type `tevalon::base::NAME`."""
    try:
        return gdb.lookup_type(BASE + name)
    except gdb.error:
        raise Failure("the type %s%s is not in the debug information: %s"
                      % (BASE, name, _what_helps()))


def at(address, value_type):
    """The value at an address, read when it is looked at."""
    return gdb.Value(address).cast(value_type.unqualified().pointer()).dereference()


def object_at(address, name):
    """The object of type `tevalon::base::NAME` at an address that is not null."""
    if address == 0:
        raise Damaged('a null pointer to a ' + name)
    return at(address, type_of(name))


def address_of(value):
    return int(value.address)


# ---- bytes ----

def read_bytes(address, count):
    if count < 0 or count > 1 << 31:
        raise Damaged('%d bytes at 0x%x' % (count, address))
    return gdb.selected_inferior().read_memory(address, count).tobytes()


def byte_order():
    """As struct and int.from_bytes() want it."""
    return '<' if int(gdb.Value(b'\1\0\0\0', gdb.lookup_type('int'))) == 1 else '>'


def word_bytes():
    return gdb.lookup_type('char').pointer().sizeof


def words(value, count):
    """The first words of an object, as numbers: pointers, or sizes."""
    width = word_bytes()
    data = read_bytes(address_of(value), width * count)
    return struct.unpack('%s%d%s' % (byte_order(), count, 'Q' if width == 8 else 'I'), data)


def c_string(address, limit):
    """Up to the first zero, or to the limit."""
    data = bytearray()
    while len(data) < limit:
        piece = min(limit - len(data), 64 - address % 64)  # Never into a page it does not reach.
        data += read_bytes(address, piece)
        address += piece
        if 0 in data:
            break
    return text_of(bytes(data))


def text_of(data):
    return data.split(b'\0', 1)[0].decode('utf-8', 'replace')


# ---- types of the C++ library, by their layout ----

def number(atomic, signed=True):
    """What a std::atomic of an integer, an enumeration, a bool or a pointer holds."""
    order = 'big' if byte_order() == '>' else 'little'
    return int.from_bytes(read_bytes(address_of(atomic), atomic.type.sizeof), order, signed=signed)


def unsigned(atomic):
    return number(atomic, signed=False)


def atomic_double(atomic):
    return struct.unpack(byte_order() + 'd', read_bytes(address_of(atomic), 8))[0]


def pointer(owner):
    """The address in a std::shared_ptr, a std::unique_ptr or a std::atomic of a pointer."""
    return words(owner, 1)[0]


def std_string(value, limit):
    """The bytes of a std::string, so many at most; there may be zeros among them."""
    begin, size = words(value, 2)
    if size > 1 << 30:
        raise Damaged('a text of %d bytes' % size)
    return read_bytes(begin, min(size, limit))


def vector(value, element_type, limit=100000):
    """The elements of a std::vector, by reference."""
    begin, end, room = words(value, 3)
    if begin == 0 and end == 0:
        return []
    count, rest = divmod(end - begin, element_type.sizeof)
    if not begin <= end <= room or rest != 0 or count > limit:
        raise Damaged('an array from 0x%x to 0x%x' % (begin, end))
    first = gdb.Value(begin).cast(element_type.unqualified().pointer())
    return ((first + i).dereference() for i in range(count))


def holder(mutex):
    """The kernel's id of the thread that holds a std::mutex, or one of ours around it; 0 where it
    is free. As the C library keeps it for debuggers."""
    native = at(address_of(mutex), gdb.lookup_type('pthread_mutex_t'))
    return int(native['__data']['__owner'])
