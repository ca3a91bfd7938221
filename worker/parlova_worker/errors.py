"""The one error type that reaches the app."""


class RequestError(Exception):
    """A request failed; the message is a finished sentence shown to the user as it is."""

    def __init__(self, message: str):
        super().__init__(message)
        self.message = message
