# The jobs of validate.py with gstat, as packages.py writes them to a folder: Rscript gstat.R FOLDER
suppressPackageStartupMessages(library(gstat))

folder <- commandArgs(trailingOnly = TRUE)[1]
settings <- read.csv(file.path(folder, "settings.csv"))
column <- function(name, n) readBin(file.path(folder, paste0(name, ".bin")), "double", n)
locations <- function(name, n) {
  frame <- as.data.frame(matrix(column(name, 3 * n), ncol = 3, byrow = TRUE))
  setNames(frame, c("x", "y", "z"))
}
put <- function(numbers) writeBin(as.double(numbers), file.path(folder, "result.bin"))
samples <- function() {
  points <- locations("points", settings$n_points)
  points$v <- column("values", settings$n_points)
  points
}

# vgm warns about its rotation convention; that the results agree shows it right.
model <- function() {
  structures <- read.csv(file.path(folder, "structures.csv"))
  sum <- if (settings$nugget > 0) vgm(settings$nugget, "Nug", 0) else NULL
  for (i in seq_len(nrow(structures))) {
    s <- structures[i, ]
    sum <- suppressWarnings(vgm(s$sill, s$kind, s$range, anis = c(s$p, s$q, s$r, s$s, s$t), add.to = sum))
  }
  sum
}
limits <- function() {
  c(
    if (settings$neighbors > 0) list(nmax = settings$neighbors),
    if (settings$radius > 0) list(maxdist = settings$radius),
    if (settings$simple > 0) list(beta = settings$mean)
  )
}

if (settings$task == "krige") {
  kriging <- do.call(gstat, c(
    list(formula = v ~ 1, locations = ~ x + y + z, data = samples(), model = model()), limits()
  ))
  out <- predict(kriging, locations("targets", settings$n_targets), debug.level = 0)
  put(c(out$var1.pred, out$var1.var))
} else if (settings$task == "validate") {
  out <- do.call(krige.cv, c(
    list(v ~ 1, locations = ~ x + y + z, data = samples(), model = model()),
    nfold = settings$n_points, verbose = FALSE, limits()
  ))
  put(out$residual)
} else if (settings$task == "variogram") {
  lags <- column("lags", settings$n_lags)
  out <- variogram(
    v ~ 1, locations = ~ x + y + z, data = samples(), alpha = 0, beta = 90,
    tol.hor = 90, tol.ver = settings$angle_tol, boundaries = lags, cutoff = max(lags)
  )
  put(c(out$dist, out$gamma, out$np))
} else if (settings$task == "simulate") {
  set.seed(1)
  field <- gstat(formula = v ~ 1, locations = ~ x + y + z, dummy = TRUE, beta = 0, model = model())
  out <- predict(field, locations("targets", settings$n_targets), nsim = settings$count, debug.level = 0)
  put(as.matrix(out[, -(1:3)]))
}
