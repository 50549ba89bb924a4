__version__ = "0.1.0"  # the library version this binding was written with
