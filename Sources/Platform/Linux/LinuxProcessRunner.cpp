// LinuxProcessRunner
