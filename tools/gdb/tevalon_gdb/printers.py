"""Pretty-printers."""


def register():
    pass
