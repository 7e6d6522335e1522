# Variogram of one direction with gstat on the problem variogram.py wrote: Rscript variogram.R FOLDER
# The direction stands upright there, so that the vertical tolerance alone makes the cone.
suppressPackageStartupMessages(library(gstat))

folder <- commandArgs(trailingOnly = TRUE)[1]
settings <- read.csv(file.path(folder, "settings.csv"))
column <- function(name, n) readBin(file.path(folder, name), "double", n)

n <- settings$n_points
points <- as.data.frame(matrix(column("points.bin", 3 * n), ncol = 3, byrow = TRUE))
points <- setNames(points, c("x", "y", "z"))
points$v <- column("values.bin", n)
lags <- column("lags.bin", settings$n_lags)

seconds <- system.time(out <- variogram(
  v ~ 1, locations = ~ x + y + z, data = points, alpha = 0, beta = 90,
  tol.hor = 90, tol.ver = settings$angle_tol, boundaries = lags, cutoff = max(lags)
))["elapsed"]
writeBin(c(seconds, out$dist, out$gamma, out$np), file.path(folder, "result.bin"))
