[Dravik]
DvExitWhenFinished=2
