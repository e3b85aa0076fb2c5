// LinuxWorkspace
