"""The way to a cloud service is not there, or somebody on it refuses."""

import socket
import time
from contextlib import contextmanager
from typing import Any, Iterator

from cloud_service import PORT, CloudService, cloud_settings
from fault_suite import Scene, fault
from isolation import HOSTS_FILE, NETWORK_ADDRESS, RESOLVER_FILE, switch_network
from proxy import REFUSAL, Proxy
from waiting import wait_until

HOST = "speech.example"
PROXY_PORT = 8711
ANSWERED = "Custom (OpenAI-compatible) request failed (HTTP {})."


def know_host(known: bool) -> None:
    HOSTS_FILE.write_text("127.0.0.1 localhost\n" + (f"{NETWORK_ADDRESS} {HOST}\n" if known else ""))


_services: dict[int, CloudService] = {}


def service(scene: Scene) -> CloudService:
    """The cloud service of this desktop."""
    key = id(scene.desktop)
    if key not in _services:
        _services[key] = scene.desktop.start_cloud_service()
    return _services[key]


def cloud(scene: Scene) -> dict[str, Any]:
    """The program with a cloud service on the network."""
    know_host(True)
    return cloud_program(scene)


def cloud_program(scene: Scene, **variables: str) -> dict[str, Any]:
    return {"settings": cloud_settings(host=HOST), "ready": False,
            "engine": scene.desktop.folder / "no-engine", "answers": service(scene).answers_file,
            "variables": variables}


def unknown_cloud(scene: Scene) -> dict[str, Any]:
    know_host(False)
    return cloud_program(scene)


def cloud_behind_proxy(scene: Scene) -> dict[str, Any]:
    know_host(False)  # only the proxy knows it
    return cloud_program(scene, http_proxy=f"http://127.0.0.1:{PROXY_PORT}")


@fault("an alert", options=cloud)
def network_gone(scene: Scene) -> str:
    switch_network(False)
    scene.on_end(lambda: switch_network(True))
    scene.dictate()
    scene.expect_alert("unreachable")
    switch_network(True)
    scene.expect_nothing_inserted()
    return f"alert “{scene.failure()}”"


@fault("the words come when it is back", options=cloud)
def network_gone_for_two_seconds_while_it_waits(scene: Scene) -> str:
    def inferences() -> int:
        return (scene.desktop.logs / "cloud-service.log").read_text().count("inference begins")
    service(scene).control(ANSWER_DELAY_MS="1500")
    begun = inferences()
    scene.dictate()
    wait_until(lambda: inferences() > begun, "the inference")
    scene.on_end(lambda: switch_network(True))
    switch_network(False)
    time.sleep(2)
    scene.expect_nothing_inserted()
    switch_network(True)
    words = scene.expect_words()
    service(scene).control()
    return f"“{words}” came"


@fault("an alert", options=unknown_cloud)
def name_that_does_not_resolve(scene: Scene) -> str:
    scene.dictate()
    scene.expect_alert("ost")
    know_host(True)
    scene.expect_nothing_inserted()
    return f"alert “{scene.failure()}”"


@contextmanager
def silent_name_server() -> Iterator[socket.socket]:
    """A name server that gets every question and answers none; given up after three seconds."""
    before = RESOLVER_FILE.read_text()
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as server:
        server.bind(("127.0.0.1", 53))
        server.settimeout(10)
        RESOLVER_FILE.write_text("nameserver 127.0.0.1\noptions timeout:3 attempts:1\n")
        try:
            yield server
        finally:
            RESOLVER_FILE.write_text(before)


@fault("an alert when the system gives up", options=unknown_cloud)
def name_server_that_never_answers(scene: Scene) -> str:
    with silent_name_server() as server:
        scene.dictate()
        asked = server.recv(512)
        scene.check(HOST.partition(".")[0].encode() in asked, f"asked for {asked!r}")
        scene.check(scene.menu_titles(), "the menu is empty")
        scene.expect_alert("ost")
    know_host(True)
    scene.expect_nothing_inserted()
    return f"alert “{scene.failure()}”"


@fault("ends at once all the same", options=unknown_cloud)
def told_to_end_while_a_name_server_is_silent(scene: Scene) -> str:
    with silent_name_server() as server:
        scene.dictate()
        server.recv(512)
        began = time.monotonic()
        status = scene.quenda.terminate()
        seconds = time.monotonic() - began
    scene.check(status == 0 and seconds < 2, f"ended with {status} after {seconds:.1f} s")
    know_host(True)
    scene.start(**cloud_program(scene))
    return f"ended after {seconds:.1f} s"


@fault("an alert", options=cloud, slow=True)
def service_that_fails(scene: Scene) -> str:
    service(scene).control(ANSWER="error")
    scene.dictate()
    scene.expect_alert(ANSWERED.format(500))
    service(scene).control()
    scene.expect_nothing_inserted()
    return f"alert “{scene.failure()}”"


@fault("an alert", options=cloud_behind_proxy)
def proxy_not_there(scene: Scene) -> str:
    scene.dictate()
    scene.expect_alert("Connection refused")
    scene.expect_nothing_inserted()
    scene.on_end(Proxy(PROXY_PORT, ("127.0.0.1", PORT)).stop)
    return f"alert “{scene.failure()}”"


def refuse(scene: Scene, answer: bytes, message: str) -> str:
    proxy = Proxy(PROXY_PORT, ("127.0.0.1", PORT))
    scene.on_end(proxy.stop)
    proxy.answer = answer
    scene.dictate()
    scene.expect_alert(message)
    scene.expect_nothing_inserted()
    proxy.answer = None
    return f"alert “{scene.failure()}”"


@fault("an alert", options=cloud_behind_proxy)
def proxy_that_forbids(scene: Scene) -> str:
    return refuse(scene, REFUSAL % b"403 Forbidden", ANSWERED.format(403))


@fault("an alert", options=cloud_behind_proxy, slow=True)
def proxy_that_wants_a_password(scene: Scene) -> str:
    return refuse(scene, REFUSAL % b"407 Proxy Authentication Required", "")


@fault("an alert", options=cloud_behind_proxy, slow=True)
def proxy_that_hangs_up(scene: Scene) -> str:
    return refuse(scene, b"", "")
