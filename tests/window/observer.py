"""Looks at the launcher as a screen reader does, through AT-SPI.

One command a line on the standard input, one JSON answer a line on the standard output:
    listen     from here on, what notifications say is told as {"said": TEXT} when it is said
    tree       {"tree": [[role, name, [state, ...], value or null], ...]} of all of the window
"""

import json
import sys

import gi

gi.require_version("Atspi", "2.0")
from gi.repository import Atspi, GLib  # noqa: E402


def tell(**answer):
    print(json.dumps(answer), flush=True)


def launcher(name):
    desktop = Atspi.get_desktop(0)
    for index in range(desktop.get_child_count()):
        application = desktop.get_child_at_index(index)
        if application and application.get_name() == name:
            return application
    return None


def describe(accessible, found):
    accessible.clear_cache()  # what was read before may have changed
    states = [state.value_nick for state in accessible.get_state_set().get_states()]
    has_value = "Value" in accessible.get_interfaces()
    found.append([accessible.get_role_name(), accessible.get_name(), states,
                  Atspi.Value.get_current_value(accessible) if has_value else None])
    for index in range(accessible.get_child_count()):
        child = accessible.get_child_at_index(index)
        if child:
            describe(child, found)
    return found


def on_showing(event):
    try:
        if event.detail1 and event.source.get_role() == Atspi.Role.NOTIFICATION:
            tell(said=event.source.get_name())
    except GLib.Error:
        pass  # gone meanwhile: the window of an earlier test


def obey(command, name, listener):
    if command == "listen":
        listener.register("object:state-changed:showing")
        tell(listening=True)
    elif command == "tree":
        application = launcher(name)
        tell(tree=describe(application, []) if application else [])


def main(name):
    Atspi.init()
    Atspi.set_timeout(20_000, 20_000)
    listener = Atspi.EventListener.new(on_showing)
    channel = GLib.IOChannel.unix_new(sys.stdin.fileno())

    def on_input(_, condition):
        line = sys.stdin.readline()
        if not line:
            Atspi.event_quit()
            return False
        obey(line.strip(), name, listener)
        return True

    GLib.io_add_watch(channel, GLib.PRIORITY_DEFAULT, GLib.IO_IN | GLib.IO_HUP, on_input)
    Atspi.event_main()


if __name__ == "__main__":
    main(sys.argv[1])
