"""The program's windows as assistive technology sees them, over AT-SPI."""

import os
from typing import Any, Iterator, Optional

from waiting import wait_until


class AccessibleProgram:
    """One program on the accessibility bus of a virtual desktop."""

    def __init__(self, environment: dict[str, str], pid: int) -> None:
        for name in ("DISPLAY", "DBUS_SESSION_BUS_ADDRESS", "XDG_RUNTIME_DIR"):
            os.environ[name] = environment[name]
        import gi  # reads the variables above when it is loaded
        gi.require_version("Atspi", "2.0")
        from gi.repository import Atspi
        self._atspi = Atspi
        self._pid = pid

    def _root(self) -> Optional[Any]:
        desktop = self._atspi.get_desktop(0)
        desktop.clear_cache()
        for index in range(desktop.get_child_count()):
            child = desktop.get_child_at_index(index)
            if child is not None and child.get_process_id() == self._pid:
                return child
        return None

    def nodes(self, below: Optional[Any] = None) -> Iterator[Any]:
        """Every accessible object of the program or below one of it, parents first."""
        node = below if below is not None else self._root()
        if node is None:
            return
        node.clear_cache()
        yield node
        if node.get_role_name() == "combo box":
            return  # its list is not looked at, and long
        for index in range(node.get_child_count()):
            child = node.get_child_at_index(index)
            if child is not None:
                yield from self.nodes(child)

    def window(self, title: str) -> Any:
        """The visible window of that title, waited for."""
        def shown() -> Optional[Any]:
            root = self._root()
            for index in range(root.get_child_count() if root else 0):
                child = root.get_child_at_index(index)
                if child is not None and child.get_name() == title and self._has(
                        child, self._atspi.StateType.SHOWING):
                    return child
            return None
        return wait_until(shown, f"the window “{title}”", 20, interval=0.1)

    def _has(self, node: Any, state: Any) -> bool:
        node.clear_cache()
        return node.get_state_set().contains(state)

    def name(self, node: Any) -> str:
        """The control's name; of a combo box, whose own name is its value here, its label's."""
        if node.get_role_name() == "combo box":
            for relation in node.get_relation_set():
                if relation.get_relation_type() == self._atspi.RelationType.LABELLED_BY:
                    return relation.get_target(0).get_name()
            return ""
        return node.get_name()

    def controls(self, window: Any) -> list[tuple[str, str]]:
        """Role and name of everything visible below the window."""
        return [(node.get_role_name(), self.name(node)) for node in self.nodes(window)
                if self._has(node, self._atspi.StateType.VISIBLE)]

    def find(self, window: Any, role: str, name: str) -> Optional[Any]:
        for node in self.nodes(window):
            if (node.get_role_name(), self.name(node)) == (role, name) and self._has(
                    node, self._atspi.StateType.VISIBLE):
                return node
        return None

    def press(self, node: Any) -> None:
        """Does what a click on the control would."""
        actions = node.get_action_iface()
        names = [actions.get_action_name(index) for index in range(actions.get_n_actions())]
        actions.do_action(next(index for index, name in enumerate(names)
                               if name in ("Press", "Toggle")))

    def focused(self, window: Any) -> Optional[tuple[str, str]]:
        """Role and name of the control that has the keyboard."""
        for node in self.nodes(window):
            if self._has(node, self._atspi.StateType.FOCUSED) and node != window:
                return node.get_role_name(), self.name(node)
        return None

    def centre(self, node: Any) -> tuple[int, int]:
        """Where on the screen the middle of the control is."""
        node.clear_cache()
        box = node.get_extents(self._atspi.CoordType.SCREEN)
        return box.x + box.width // 2, box.y + box.height // 2
