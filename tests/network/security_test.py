#!/usr/bin/env python3
"""Who may use an engine, and what of its machine can be reached through it.

usage: security_test.py CLIENT SERVER SIMULATE SOURCE [NAME ...]"""

import os
import pathlib
import re
import socket
import ssl
import stat
import subprocess
import sys
import time

sys.dont_write_bytecode = True
sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent))
from programs import Failed, Program, check, run_tests

HTTP2_PREFACE = b"PRI * HTTP/2.0\r\n\r\nSM\r\n\r\n" + bytes([0, 0, 0, 4, 0, 0, 0, 0, 0])


def certificates(place, folder, *options):
    done = subprocess.run([f"{place.source}/script/certificates", "--folder", folder, *options], cwd=place.folder,
                          capture_output=True, text=True, check=False)
    check(done.returncode == 0, done.stderr)
    return done.stdout


def openssl(place, *words):
    done = subprocess.run(["openssl", *words], cwd=place.folder, capture_output=True, text=True, check=False)
    check(done.returncode == 0, f"openssl {words}: {done.stderr}")


def bundle(place):
    """A file of the authorities of both folders: who goes by it takes either for good."""
    text = "".join((place.folder / folder / "authority.pem").read_text() for folder in ("ours", "theirs"))
    (place.folder / "both.pem").write_text(text)
    return "both.pem"


def is_served(place, server, name=None):
    """Whether an engine answers a client of another make, which does not look at certificates, its own or others."""
    context = ssl.SSLContext(ssl.PROTOCOL_TLS_CLIENT)
    context.check_hostname = False
    context.verify_mode = ssl.CERT_NONE
    context.set_alpn_protocols(["h2"])
    if name:
        context.load_cert_chain(place.folder / f"{name}.pem", place.folder / f"{name}.key")
    try:
        with socket.create_connection((server.address, server.port), timeout=20) as plain, \
                context.wrap_socket(plain) as secure:
            secure.sendall(HTTP2_PREFACE)
            # The engine's first frame, SETTINGS, comes to those whom it lets in.
            return len(secure.recv(9)) > 0
    except (ssl.SSLError, ConnectionError):
        return False


def expire(place, folder, name, end="20200201000000Z"):
    """Replaces a certificate by the same one with another end, long ago if not told otherwise."""
    path = f"{folder}/{name}.pem"
    config = place.folder / "expire.cnf"
    database = place.folder / "expire"
    database.mkdir(exist_ok=True)
    (database / "index").write_text("")
    config.write_text("[ca]\ndefault_ca = a\n[a]\ndatabase = expire/index\nnew_certs_dir = expire\nrand_serial = yes\n"
                      "default_md = sha256\npolicy = p\ncopy_extensions = copyall\nunique_subject = no\n"
                      "[p]\norganizationName = optional\ncommonName = supplied\n")
    openssl(place, "x509", "-x509toreq", "-in", path, "-key", f"{folder}/{name}.key", "-copy_extensions", "copyall",
            "-out", "expire/request")
    openssl(place, "ca", "-batch", "-notext", "-config", "expire.cnf", "-cert", f"{folder}/authority.pem", "-keyfile",
            f"{folder}/authority.key", "-in", "expire/request", "-out", path, "-startdate", "20200101000000Z",
            "-enddate", end)


def identity(folder, name, authority=None):
    return {"CertificateAuthority": authority or f"{folder}/authority.pem", "Certificate": f"{folder}/{name}.pem",
            "PrivateKey": f"{folder}/{name}.key"}


def parameters(place, name, keys):
    return place.write_parameters(keys, path=place.folder / f"{name}.xml")


def attaching_fails(place, client_parameters):
    """Gives the reason that the client tells. Its prompt is usable afterwards."""
    with place.start_client(client_parameters) as console:
        console.do("broadcast", "found 1 computational engines")
        found = console.do("attach 1", r"failed to attach \((.*)\)\.|attached OK", 40)
        check("failed" in found.group(), "an engine let in a client that has no right to it")
        console.is_usable()
        console.leave()
        return found.group(1)


def attaching_works(place, client_parameters):
    with place.start_client(client_parameters) as console:
        console.attach()
        console.do("grid bay 16 1", "grid construction complete")
        console.leave()


def strangers_are_refused(place, server_keys, stranger_keys):
    """A stranger is refused, and the engine goes on serving those whom it knows."""
    with place.start_server(parameters(place, "server", server_keys)) as server:
        reason = attaching_fails(place, parameters(place, "stranger", stranger_keys))
        attaching_works(place, parameters(place, "client", identity("ours", "client")))
        server.end()
    print(f"  the reason told: {reason}")
    return reason


def a_client_with_a_certificate_is_served(place):
    certificates(place, "ours")
    with place.start_server(parameters(place, "server", identity("ours", "server"))) as server:
        attaching_works(place, parameters(place, "client", identity("ours", "client")))
        server.end()


def a_certificate_of_another_authority_is_refused(place):
    certificates(place, "ours")
    certificates(place, "theirs")
    reason = strangers_are_refused(place, identity("ours", "server"),
                                   identity("theirs", "client", authority=bundle(place)))
    check("cannot be reached with the certificates" in reason, reason)
    reason = strangers_are_refused(place, identity("ours", "server"),
                                   identity("theirs", "client", authority="ours/authority.pem"))
    check("unable to get local issuer certificate" in reason, "a mistake is found before anybody is asked: " + reason)


def no_certificate_is_refused(place):
    certificates(place, "ours")
    strangers_are_refused(place, identity("ours", "server"), {})


def an_expired_certificate_is_refused(place):
    certificates(place, "ours", "--client", "client", "--client", "old")
    expire(place, "ours", "old")
    strangers_are_refused(place, identity("ours", "server"), identity("ours", "old"))


def the_engine_looks_at_certificates_itself(place):
    """Whatever a client makes of its own certificate."""
    certificates(place, "ours", "--client", "client", "--client", "old")
    certificates(place, "theirs")
    expire(place, "ours", "old")
    with place.start_server(parameters(place, "server", identity("ours", "server"))) as server:
        check(is_served(place, server, "ours/client"), "a client with a good certificate is served")
        for name in ("theirs/client", "ours/old", "ours/server", None):
            check(not is_served(place, server, name), f"a client with {name} is served")
        check(is_served(place, server, "ours/client"), "the engine goes on")
        server.end()


def an_engine_of_another_authority_is_refused_by_the_client(place):
    certificates(place, "ours")
    certificates(place, "theirs")
    keys = identity("theirs", "server", authority=bundle(place))
    with place.start_server(parameters(place, "server", keys)) as server:
        check(is_served(place, server, "ours/client"), "the engine itself would serve the client")
        print("  the reason told:", attaching_fails(place, parameters(place, "client", identity("ours", "client"))))
        server.end()


def an_engine_whose_certificate_ends_while_it_runs_is_refused_by_the_client(place):
    certificates(place, "ours")
    end = time.time() + 12
    expire(place, "ours", "server", time.strftime("%Y%m%d%H%M%SZ", time.gmtime(end)))
    with place.start_server(parameters(place, "server", identity("ours", "server"))) as server:
        client = parameters(place, "client", identity("ours", "client"))
        attaching_works(place, client)
        time.sleep(max(0.0, end + 1 - time.time()))
        print("  the reason told:", attaching_fails(place, client))
        server.end()


def a_running_engine_takes_a_renewed_certificate(place):
    certificates(place, "ours")
    end = time.time() + 12
    expire(place, "ours", "server", time.strftime("%Y%m%d%H%M%SZ", time.gmtime(end)))
    with place.start_server(parameters(place, "server", identity("ours", "server"))) as server:
        text = certificates(place, "ours")
        check("made ours/server.pem" in text, text)
        # New ones are taken within seconds.
        time.sleep(max(0.0, end + 1 - time.time()))
        attaching_works(place, parameters(place, "client", identity("ours", "client")))
        server.end()


def an_engine_does_not_start_with_an_expired_certificate(place):
    certificates(place, "ours")
    expire(place, "ours", "server")
    server_refuses(place, identity("ours", "server"), '"ours/server.pem".*certificate has expired')


def a_client_cannot_pose_as_an_engine(place):
    """Its certificate is one of the authority, but not one of an engine."""
    certificates(place, "ours", "--client", "client", "--client", "other")
    with place.start_server(parameters(place, "server", identity("ours", "other"))) as server:
        print("  the reason told:", attaching_fails(place, parameters(place, "client", identity("ours", "client"))))
        server.end()


def a_client_that_wants_security_is_not_served_in_plain_text(place):
    certificates(place, "ours")
    with place.start_server(parameters(place, "server", {})) as server:
        print("  the reason told:", attaching_fails(place, parameters(place, "client", identity("ours", "client"))))
        server.end()


def server_refuses(place, keys, pattern, engine=None, sections=""):
    path = place.folder / "refused.xml"
    path.unlink(missing_ok=True)
    place.write_parameters(keys, engine, path)
    if sections:
        path.write_text(path.read_text().replace("</parameters>", sections + "</parameters>"))
    with Program([place.server, path], place.folder) as server:
        status = server.wait()
        check(status not in (0, -6, -11), f"a server that cannot start must end with an error, not with {status}")
        check(re.search(pattern, server.err.text()), f"\"{pattern}\" is not in: {server.err.text()}")


def plain_text_beyond_loopback_needs_to_be_allowed_and_is_warned_of(place):
    server_refuses(place, {"Address": "0.0.0.0"}, "AllowPlainText")
    with place.start_server(parameters(place, "plain", {"Address": "0.0.0.0", "AllowPlainText": "true"})) as server:
        check("AllowPlainText is set: whoever reaches 0.0.0.0 can use this engine" in server.err.text(),
              f"no warning: {server.err.text()}")
        attaching_works(place, parameters(place, "client", {}))
        server.end()


def a_server_that_cannot_serve_says_why(place):
    certificates(place, "ours")
    server_refuses(place, {"Port": "many"}, "Port")
    server_refuses(place, {"Address": "203.0.113.9"} | identity("ours", "server"), r"203\.0\.113\.9")
    server_refuses(place, identity("ours", "nobody"), r"nobody\.(pem|key)")
    server_refuses(place, {"Certificate": "ours/server.pem"}, "CertificateAuthority")
    server_refuses(place, {}, 'Threads is "many"', {"Threads": "many"})
    server_refuses(place, {}, '"nowhere" is no directory: make it, or set WorkingDirectory', {"WorkingDirectory": "nowhere"})
    server_refuses(place, {}, '"ours/server.key" is no directory', {"WorkingDirectory": "ours/server.key"})
    zone = '<section name="Projection"><parameter key="UTMZone">61</parameter></section>'
    server_refuses(place, {}, 'UTMZone of section Projection is "61"', sections=zone)
    with place.start_server(parameters(place, "first", {})) as server:
        server_refuses(place, {"Port": server.port}, str(server.port))
        server.end()


def only_survey_directories_are_reached(place):
    names = place.simulate_lines(1, "--line-length", 60, "--depth", 20, "--beams", 32, output="survey/lines")
    secret = place.simulate_lines(1, "--line-length", 60, "--depth", 20, "--beams", 32, "--seed", 9, output="secret")[0]
    os.symlink(place.folder / secret, place.folder / "survey" / "leak.gsf")
    os.mkfifo(place.folder / "survey" / "pipe.gsf")
    (place.folder / "grids").mkdir()
    place.write_parameters({"SurveyDirectories": "survey"}, {"WorkingDirectory": "grids"})
    inside = names[0].removeprefix("survey/")
    refused = [place.folder / secret, secret, f"../{secret}", "leak.gsf", "/etc/passwd", "pipe.gsf", "/dev/zero",
               f"lines/../{inside}"]
    with place.start_server() as server, place.start_client(options=("-a", "messages.txt")) as console:
        console.attach()
        console.do("grid bay 16 1", "grid construction complete")
        for name in refused:
            console.do(f"add {name}", "line committed to server|failed to send command to server")
        console.do(f"add {inside}", "line committed to server")
        console.do(f"add {place.folder}/survey/{inside}", "line committed to server")
        console.do("synch", "grid synchronised OK")
        messages = (place.folder / "messages.txt").read_text()
        done = re.findall(r"line \d+ \((\S+)\) completed", messages)
        # The second is the first one by another name: a line whose bytes the grid holds.
        check(done == [inside], f"completed: {done}")
        for name in refused:
            check(f"({name}) completed" not in messages, f"{name} was read")
        for name in ("../escaped", "/tmp/escaped", "a/b", "..", "."):
            console.do(f"grid {name} 16 1", "grid construction failed|failed to send command to server")
        console.leave()
        server.end()
    check(not (place.folder / "escaped").exists(), "a grid was made outside of the working directory")
    check([path.name for path in (place.folder / "grids").iterdir()] == ["bay"], "only one grid was made")


def the_script_for_certificates_keeps_what_is_good(place):
    def digest(name):
        return (place.folder / "c" / name).read_bytes()

    text = certificates(place, "c", "--client", "ann")
    check("c/ann.pem" in text and "PrivateKey" in text, text)
    files = sorted(path.name for path in (place.folder / "c").iterdir())
    check(files == ["ann.key", "ann.pem", "authority.key", "authority.pem", "server.key", "server.pem"], str(files))
    for name in files:
        mode = stat.S_IMODE((place.folder / "c" / name).stat().st_mode)
        check(mode == (0o600 if name.endswith(".key") else 0o644), f"{name} has mode {mode:o}")
    before = {name: digest(name) for name in files}
    certificates(place, "c", "--client", "ann")
    check({name: digest(name) for name in files} == before, "a second run changes nothing")
    certificates(place, "c", "--client", "bob", "--server", "10.1.2.3", "--server", "ship.example")
    changed = {name for name in files if digest(name) != before[name]}
    check(changed == {"server.pem", "server.key"}, f"only the engines' certificate gets hosts: {changed}")
    hosts = subprocess.run(["openssl", "x509", "-in", "c/server.pem", "-noout", "-ext", "subjectAltName"],
                           cwd=place.folder, capture_output=True, text=True, check=True).stdout
    for host in ("DNS:quarro-server", "DNS:localhost", "IP Address:127.0.0.1", "IP Address:10.1.2.3", "DNS:ship.example"):
        check(host in hosts, f"{host} is not in {hosts}")
    for name, purpose, fits in (("ann", "sslclient", True), ("ann", "sslserver", False), ("server", "sslserver", True),
                                ("server", "sslclient", False), ("bob", "sslclient", True)):
        done = subprocess.run(["openssl", "verify", "-CAfile", "c/authority.pem", "-purpose", purpose, f"c/{name}.pem"],
                              cwd=place.folder, capture_output=True, check=False)
        check((done.returncode == 0) == fits, f"{name} as {purpose}")
    expire(place, "c", "ann")
    text = certificates(place, "c", "--client", "ann")
    check("made c/ann.pem" in text, "an expired certificate is made anew")
    for words in (["--days", "0"], ["--client", "server"], ["--client", "../x"], ["--server", "a b"], ["--what"]):
        done = subprocess.run([f"{place.source}/script/certificates", "--folder", "c", *words], cwd=place.folder,
                              capture_output=True, text=True, check=False)
        check(done.returncode == 2 and words[-1].split()[0] in done.stderr, f"{words}: {done.stderr}")


TESTS = [the_script_for_certificates_keeps_what_is_good, a_client_with_a_certificate_is_served,
         a_certificate_of_another_authority_is_refused, no_certificate_is_refused, an_expired_certificate_is_refused,
         the_engine_looks_at_certificates_itself, an_engine_of_another_authority_is_refused_by_the_client,
         an_engine_whose_certificate_ends_while_it_runs_is_refused_by_the_client,
         a_running_engine_takes_a_renewed_certificate,
         an_engine_does_not_start_with_an_expired_certificate, a_client_cannot_pose_as_an_engine,
         a_client_that_wants_security_is_not_served_in_plain_text,
         plain_text_beyond_loopback_needs_to_be_allowed_and_is_warned_of, a_server_that_cannot_serve_says_why,
         only_survey_directories_are_reached]

if __name__ == "__main__":
    run_tests(TESTS, __doc__)
