"""Requests to a head over HTTP."""

from __future__ import annotations

import http.client
import json
import urllib.parse
from collections.abc import Mapping
from typing import Any

from .errors import HeadError, Refused, Unreachable

INTERFACE = 1


class Client:
    """Asks a head at an address such as "http://127.0.0.1:40213/". `real` is the longest wait for an answer [s].

    Each request has a connection of its own: a head closes one on which nothing moves. Proxies of the environment are not
    asked. May be used by several threads.
    """

    def __init__(self, address: str, *, real: float = 60.0) -> None:
        parts = urllib.parse.urlsplit(address if "//" in address else "http://" + address)
        try:
            port = parts.port
        except ValueError as error:
            raise HeadError(f"{address} is no address of a head: {error}") from error
        if parts.scheme != "http" or not parts.hostname or port is None:
            raise HeadError(f"{address} is no address of a head; it has a form such as http://127.0.0.1:40213/")
        self._host = parts.hostname
        self._port = port
        self._real = real

    @property
    def address(self) -> str:
        """The head's address."""
        host = f"[{self._host}]" if ":" in self._host else self._host
        return f"http://{host}:{self._port}/"

    def request(
        self, method: str, path: str, *, query: Mapping[str, Any] | None = None, body: Any = None
    ) -> tuple[bytes, Mapping[str, str]]:
        """Sends a request. Parameters of `query` that are None are left out; `body` is sent as JSON.

        Returns the answer's bytes and headers. Raises Refused with the head's reason, Unreachable where nobody answers.
        """
        given = {name: value for name, value in (query or {}).items() if value is not None}
        target = path + ("?" + urllib.parse.urlencode(given) if given else "")
        connection = http.client.HTTPConnection(self._host, self._port, timeout=self._real)
        try:
            if body is None:
                connection.request(method, target)
            else:
                connection.request(method, target, json.dumps(body), {"Content-Type": "application/json"})
            answer = connection.getresponse()
            content = answer.read()
        except (OSError, http.client.HTTPException) as error:
            raise Unreachable(f"the head at {self.address} does not answer {method} {target}: "
                              f"{error or type(error).__name__}") from error
        finally:
            connection.close()
        if answer.status >= 400:
            raise Refused(answer.status, _reason(content, answer.status))
        return content, answer.headers

    def get(self, path: str, **query: Any) -> Any:
        """The JSON of a path. Raises as `request` does."""
        return _json(self.request("GET", path, query=query)[0], path)

    def look(self) -> None:
        """Answered when the head has told everything that happened until now. Raises as `request` does."""
        self.request("POST", "/v1/look")

    def post(self, path: str, body: Mapping[str, Any]) -> Any:
        """Sends a JSON object; the JSON of the answer. Raises as `request` does."""
        return _json(self.request("POST", path, body=body)[0], path)


def _json(content: bytes, path: str) -> Any:
    try:
        return json.loads(content)
    except ValueError as error:
        raise HeadError(f"what answers {path} is no head: {content[:80]!r}") from error


def _reason(content: bytes, status: int) -> str:
    try:
        return str(json.loads(content)["error"])
    except (ValueError, KeyError, TypeError):
        return f"status {status}: {content[:200].decode('utf-8', 'replace')}"
