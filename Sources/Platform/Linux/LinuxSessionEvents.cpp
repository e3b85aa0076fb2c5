// LinuxSessionEvents
