"""velkor-tune serve: a live page of every campaign in the folders it is
given, read-only, on this machine's address unless told another.

  /                       the campaigns of every folder
  /c/FOLDER/PATH          a campaign's page (the same page; its script asks for)
  /api/campaigns          the campaigns, as JSON
  /api/c/FOLDER/PATH      a campaign's figures, as JSON; with ?since=VERSION,
                          {"unchanged": true} while its files have not changed
  /file/FOLDER/PATH       a plot or text file of a campaign
  /static/NAME            the page's script and style

FOLDER is a given folder's name. Every answer says `final` once all the
campaign's parts have ended, and the page stops asking then. A request for
anything else, or for a path that leaves its folder (.., an absolute path,
a link out of it), gets its error as JSON with the status, never a file
from elsewhere or a trace of the server's own code."""
import json
import mimetypes
import os
import pathlib
import sys
import urllib.parse
from http import HTTPStatus
from http.server import BaseHTTPRequestHandler, ThreadingHTTPServer

from . import campaigns

PAGE = pathlib.Path(__file__).resolve().parent / "page"
STATIC = {p.name: p for p in PAGE.iterdir() if p.suffix in (".js", ".css")}
FILES = {".png", ".txt", ".json", ".jsonl", ".md"}  # what /file serves from a campaign


class Refused(Exception):
    def __init__(self, status: HTTPStatus, message: str):
        super().__init__(message)
        self.status = status


def roots_of(folders) -> dict[str, pathlib.Path]:
    """Each folder by a name for the addresses: its own, numbered when two agree."""
    roots = {}
    for folder in folders:
        name = folder.resolve().name or "root"
        name = name if name not in roots else f"{name}-{len(roots) + 1}"
        roots[name] = pathlib.Path(os.path.realpath(folder))
    return roots


def inside(roots: dict, rest: str) -> tuple[str, pathlib.Path]:
    """The folder named first in rest ("FOLDER/PATH", percent-encoded) and the
    real path of PATH in it, refused if it is not there."""
    name, _, rel = rest.partition("/")
    if name not in roots:
        raise Refused(HTTPStatus.NOT_FOUND, f"no folder named {name!r} is served (these are: {', '.join(roots)})")
    rel = urllib.parse.unquote(rel, errors="strict") if rel else ""
    if "\0" in rel:
        raise Refused(HTTPStatus.BAD_REQUEST, "a path holds no NUL")
    if rel.startswith("/") or os.path.isabs(rel):
        raise Refused(HTTPStatus.BAD_REQUEST, "a path is relative to its folder, never absolute")
    if ".." in rel.split("/"):
        raise Refused(HTTPStatus.BAD_REQUEST, "a path may not climb out of its folder with '..'")
    root = roots[name]
    target = pathlib.Path(os.path.realpath(root / rel))
    if target != root and root not in target.parents:
        raise Refused(HTTPStatus.FORBIDDEN, f"{rel} leads out of the folder {name} (a link?)")
    if not target.exists():
        raise Refused(HTTPStatus.NOT_FOUND, f"{name}/{rel} does not exist")
    return name, target


class Handler(BaseHTTPRequestHandler):
    server_version = "velkor-tune"
    roots: dict = {}
    poll = 10.0

    def log_message(self, format, *args):  # a quiet server: errors only, on standard error
        if args and str(args[1])[:1] in "45":
            sys.stderr.write(f"{self.address_string()} {format % args}\n")

    def send(self, status: HTTPStatus, body: bytes, kind: str):
        self.send_response(status)
        self.send_header("Content-Type", kind)
        self.send_header("Content-Length", str(len(body)))
        self.send_header("Cache-Control", "no-store")
        self.send_header("X-Content-Type-Options", "nosniff")
        self.end_headers()
        if self.command != "HEAD":
            self.wfile.write(body)

    def send_json(self, value, status=HTTPStatus.OK):
        self.send(status, json.dumps(value, allow_nan=False, default=str).encode(), "application/json")

    def do_GET(self):
        try:
            self.route()
        except Refused as e:
            self.send_json({"error": str(e)}, e.status)
        except UnicodeDecodeError:
            self.send_json({"error": "the address is not UTF-8"}, HTTPStatus.BAD_REQUEST)
        except (BrokenPipeError, ConnectionResetError):
            pass
        except Exception as e:  # never a trace to the client
            self.send_json({"error": f"the server could not read this ({type(e).__name__})"},
                           HTTPStatus.INTERNAL_SERVER_ERROR)

    do_HEAD = do_GET

    def refuse_writes(self):
        self.send_json({"error": "this server is read-only: GET only"}, HTTPStatus.METHOD_NOT_ALLOWED)

    do_POST = do_PUT = do_DELETE = do_PATCH = refuse_writes

    def route(self):
        url = urllib.parse.urlsplit(self.path)
        path, query = url.path, urllib.parse.parse_qs(url.query)
        if path == "/" or path.startswith("/c/"):
            if path.startswith("/c/"):
                inside(self.roots, path[len("/c/"):])
            self.send(HTTPStatus.OK, (PAGE / "index.html").read_bytes(), "text/html; charset=utf-8")
        elif path.startswith("/static/") and path[len("/static/"):] in STATIC:
            file = STATIC[path[len("/static/"):]]
            self.send(HTTPStatus.OK, file.read_bytes(), mimetypes.guess_type(file.name)[0] + "; charset=utf-8")
        elif path == "/api/campaigns":
            self.send_json(self.listing())
        elif path.startswith("/api/c/"):
            self.campaign(path[len("/api/c/"):], query.get("since", [None])[0])
        elif path.startswith("/file/"):
            name, target = inside(self.roots, path[len("/file/"):])
            if not target.is_file() or target.suffix not in FILES:
                raise Refused(HTTPStatus.NOT_FOUND, f"only the plots and text files of a campaign are served"
                                                    f" ({', '.join(sorted(FILES))})")
            kind = mimetypes.guess_type(target.name)[0] or "text/plain"
            self.send(HTTPStatus.OK, target.read_bytes(), kind + ("; charset=utf-8" if kind.startswith("text") else ""))
        else:
            raise Refused(HTTPStatus.NOT_FOUND, f"no such page: {path}")

    def listing(self) -> dict:
        roots = []
        for name, root in self.roots.items():
            found = campaigns.folders(root) if root.is_dir() else []
            roots.append({"name": name, "folder": str(root), "exists": root.is_dir(), "campaigns": [
                {"path": f.relative_to(root).as_posix(), "kinds": [p["kind"] for p in campaigns.parts(f)],
                 "final": all(p["final"] for p in campaigns.parts(f))} for f in found]})
        return {"roots": roots, "poll": self.poll}

    def campaign(self, rest: str, since):
        name, folder = inside(self.roots, rest)
        if not folder.is_dir():
            raise Refused(HTTPStatus.NOT_FOUND, f"{rest} is a file, not a campaign's folder")
        version = campaigns.version(folder)
        if since == version:
            # Whether it has ended is known from the last answer; it is read again only when files change.
            self.send_json({"unchanged": True, "version": version, "final": self.server.finals.get(folder, False),
                            "poll": self.poll})
            return
        view = campaigns.view(folder, f"{name}/{folder.relative_to(self.roots[name]).as_posix()}".rstrip("/."))
        self.server.finals[folder] = view["final"]
        self.send_json({**view, "version": version, "poll": self.poll})


def server(folders, host: str = "127.0.0.1", port: int = 0, poll: float = 10.0) -> ThreadingHTTPServer:
    handler = type("CampaignHandler", (Handler,), {"roots": roots_of(folders), "poll": poll})
    httpd = ThreadingHTTPServer((host, port), handler)
    httpd.daemon_threads = True
    httpd.finals = {}
    return httpd


def serve(folders, host: str, port: int, poll: float):
    httpd = server(folders, host, port, poll)
    for name, root in httpd.RequestHandlerClass.roots.items():
        print(f"{name}: {root}" + ("" if root.is_dir() else " (not there yet)"))
    address = f"http://{host if ':' not in host else f'[{host}]'}:{httpd.server_address[1]}/"
    print(f"campaigns on {address} (Ctrl-C ends)", flush=True)
    try:
        httpd.serve_forever(poll_interval=0.5)
    finally:
        httpd.server_close()
