"""The way to a cloud service is not there, or somebody on it refuses."""

import time
from typing import Any

from cloud_service import PORT, CloudService, cloud_settings
from fault_suite import Scene, fault
from isolation import HOSTS_FILE, NETWORK_ADDRESS, switch_network
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
            "engine": scene.desktop.folder / "no-engine", "answers": service(scene).answers_file, "variables": variables}


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


@fault("an alert", options=cloud)
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


@fault("an alert", options=cloud_behind_proxy)
def proxy_that_wants_a_password(scene: Scene) -> str:
    return refuse(scene, REFUSAL % b"407 Proxy Authentication Required", "")


@fault("an alert", options=cloud_behind_proxy)
def proxy_that_hangs_up(scene: Scene) -> str:
    return refuse(scene, b"", "")
