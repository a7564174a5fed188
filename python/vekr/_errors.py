"""The exception raised for a negative status of the vekr library."""


class VekrError(RuntimeError):
    """A vekr library call returned an error status.

    Attributes
    ----------
    code : int
        The negative status code (for example -4).
    name : str
        Its name in ``vekr.h`` (for example ``"vekStsNoMem"``).
    function : str
        The library function that returned it.
    """

    def __init__(self, code, name, function):
        super().__init__(f"{function} failed: {name} ({code})")
        self.code = code
        self.name = name
        self.function = function
