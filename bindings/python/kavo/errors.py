"""What the library raises."""


class FatalError(RuntimeError):
    """A precondition of the library is broken.

    It is meant for the outermost boundary of a program. The object whose operation raised it is good for nothing any
    more; all others are untouched.

    Attributes:
        condition: The precondition, as it stands in the source.
        file: The source file, without extension and relative to the library's root.
        line: The line that the report is known by.
        message: What went wrong; may be empty.
    """

    def __init__(self, condition: str, file: str, line: int, message: str) -> None:
        super().__init__(condition, file, line, message)
        self.condition = condition
        self.file = file
        self.line = line
        self.message = message

    def __str__(self) -> str:
        return f"{self.message}{' ' if self.message else ''}[{self.condition}] at {self.file}:{self.line}"


class FileError(RuntimeError):
    """A file does not say what its format asks for.

    Attributes:
        file: Its name, as it was given.
        line: From 1; 0 where the fault has no line of its own.
        message: What was found and what was expected.
    """

    def __init__(self, file: str, line: int, message: str) -> None:
        super().__init__(file, line, message)
        self.file = file
        self.line = line
        self.message = message

    def __str__(self) -> str:
        return f"{self.file}{f':{self.line}' if self.line else ''}: {self.message}"
