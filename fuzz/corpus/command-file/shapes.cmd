	[dravik]
  DvImportFile = "  in file.gds "
ToolCropX0=1.5mm
q=yes
[Other]
ToolArcPrecValue=1
