# Leave-one-out with gstat on the problem selection.py wrote: Rscript selection.R FOLDER
suppressPackageStartupMessages(library(gstat))

folder <- commandArgs(trailingOnly = TRUE)[1]
settings <- read.csv(file.path(folder, "settings.csv"))
column <- function(name, n) readBin(file.path(folder, name), "double", n)

n <- settings$n_points
points <- as.data.frame(matrix(column("points.bin", 3 * n), ncol = 3, byrow = TRUE))
points <- setNames(points, c("x", "y", "z"))
points$v <- column("values.bin", n)

# vgm warns about its rotation convention; selection.py compares the results, which shows it right.
model <- suppressWarnings(vgm(
  settings$sill, "Sph", settings$r1,
  anis = c(settings$azimuth, 0, 0, settings$r2 / settings$r1, settings$r3 / settings$r1),
  add.to = vgm(settings$nugget, "Nug", 0)
))

# With a known mean the kriging is simple.
mean <- if (settings$simple > 0) list(beta = 0) else NULL
seconds <- system.time(out <- do.call(krige.cv, c(
  list(v ~ 1, locations = ~ x + y + z, data = points, model = model),
  nmax = settings$neighbors, nfold = n, verbose = FALSE, mean
)))["elapsed"]
writeBin(c(seconds, out$var1.pred), file.path(folder, "result.bin"))
